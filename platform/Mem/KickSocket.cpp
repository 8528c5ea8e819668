#include "Mem/KickSocket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Mem/Observer.h"

namespace Mem {
namespace {

struct Address {
    FileDescriptor directory;
    sockaddr_un name{};

    explicit Address(const Quil::String& path) : directory(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {
        name.sun_family = AF_UNIX;
        std::snprintf(name.sun_path, sizeof name.sun_path, "/proc/self/fd/%d/kick", directory.get());
    }
    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&name); }
};

FileDescriptor makeSocket() {
    return FileDescriptor(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

void require(bool good, const char* operation, const Quil::String& directory) {
    if (!good) throw Quil::SystemException(Quil::cat(operation, "(", directory, "/kick): ", std::strerror(errno)));
}

}  // namespace

FileDescriptor KickSocket::listen(const Quil::String& directory) {
    const Address address(directory);
    FileDescriptor fd = makeSocket();
    errno = observeFile("bind", directory.c_str());
    require(errno == 0 && fd, "socket", directory);
    unlink(address.name.sun_path);  // what a dead writer left; the writer lock says that there is no living one
    require(bind(fd.get(), address.get(), sizeof address.name) == 0, "bind", directory);
    require(chmod(address.name.sun_path, 0660) == 0, "chmod", directory);
    require(::listen(fd.get(), 64) == 0, "listen", directory);
    return fd;
}

FileDescriptor KickSocket::connect(const Quil::String& directory) {
    const Address address(directory);
    FileDescriptor fd = makeSocket();
    if (!address.directory || !fd || ::connect(fd.get(), address.get(), sizeof address.name) != 0) return {};
    return fd;
}

}  // namespace Mem
