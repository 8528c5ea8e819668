#include "Mem/KickSocket.h"

#include <sys/socket.h>

#include <cstring>

#include "Mem/Observer.h"
#include "Quil/LocalSocket.h"

namespace Mem {

constexpr const char* name = "kick";

// The writer lock says that no living writer has the name.
FileDescriptor KickSocket::listen(const Quil::String& directory) {
    if (const int error = observeFile("bind", directory.c_str())) {
        throw Quil::SystemException(Quil::cat("bind(", directory, "/", name, "): ", std::strerror(error)));
    }
    return Quil::LocalSocket::listen(directory, name, SOCK_SEQPACKET);
}

FileDescriptor KickSocket::connect(const Quil::String& directory) {
    return Quil::LocalSocket::connect(directory, name, SOCK_SEQPACKET);
}

}  // namespace Mem
