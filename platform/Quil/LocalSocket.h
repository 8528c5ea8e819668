// LocalSocket.h: the two ends of a Unix-domain socket in a directory, non-blocking, open to the owner and its group.
// Paths of sockets are short (108 bytes), so the name is reached through the directory's descriptor.
#pragma once

#include "Quil/FileDescriptor.h"
#include "Quil/Text.h"

namespace Quil {

struct L2RIB_EXPORT LocalSocket {
    // type: SOCK_STREAM or SOCK_SEQPACKET. Takes the place of a name that is left there. Raises SystemException.
    static FileDescriptor listen(const String& directory, const char* name, int type);
    // None when nobody listens.
    static FileDescriptor connect(const String& directory, const char* name, int type);
    // Whether the other side runs as this user or as root.
    static bool isOwner(int fd);
    // Or in this process's group.
    static bool isTrusted(int fd);
};

}  // namespace Quil
