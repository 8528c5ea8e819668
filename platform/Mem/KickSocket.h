// KickSocket.h: making the two ends of a kick socket. Paths of sockets are short (108 bytes), so the name is reached
// through the directory's descriptor.
#pragma once

#include "Mem/Files.h"

namespace Mem {

struct L2RIB_EXPORT KickSocket {
    static FileDescriptor listen(const Quil::String& directory);   // raises SystemException
    static FileDescriptor connect(const Quil::String& directory);  // none when nobody listens
};

}  // namespace Mem
