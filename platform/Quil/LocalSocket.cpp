#include "Quil/LocalSocket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <vector>

#include "Quil/Exception.h"

namespace Quil {
namespace {

struct Address {
    FileDescriptor directory;
    sockaddr_un name{};

    Address(const String& path, const char* file) : directory(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {
        name.sun_family = AF_UNIX;
        const int length =
            std::snprintf(name.sun_path, sizeof name.sun_path, "/proc/self/fd/%d/%s", directory.get(), file);
        if (length >= static_cast<int>(sizeof name.sun_path)) {
            throw SystemException(cat(file, " is too long for the name of a socket"));
        }
    }
    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&name); }
};

FileDescriptor makeSocket(int type) { return FileDescriptor(socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)); }

}  // namespace

FileDescriptor LocalSocket::listen(const String& directory, const char* name, int type) {
    const auto require = [&](bool good, const char* operation) {
        if (!good) throw SystemException(cat(operation, "(", directory, "/", name, "): ", std::strerror(errno)));
    };
    // Made under another name: whoever finds the name finds it open, and it is never missing while it is replaced.
    const Address fresh(directory, (String(name) + ".new").c_str()), address(directory, name);
    FileDescriptor fd = makeSocket(type);
    require(bool(fd), "socket");
    unlink(fresh.name.sun_path);
    require(bind(fd.get(), fresh.get(), sizeof fresh.name) == 0, "bind");
    require(chmod(fresh.name.sun_path, 0660) == 0, "chmod");
    require(::listen(fd.get(), 64) == 0, "listen");
    require(rename(fresh.name.sun_path, address.name.sun_path) == 0, "rename");
    return fd;
}

FileDescriptor LocalSocket::connect(const String& directory, const char* name, int type) {
    const Address address(directory, name);
    FileDescriptor fd = makeSocket(type);
    if (!address.directory || !fd || ::connect(fd.get(), address.get(), sizeof address.name) != 0) return {};
    return fd;
}

namespace {

std::optional<ucred> credentialsOf(int fd) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return std::nullopt;
    return peer;
}

// Whether the other side has this group among its supplementary ones.
bool isAlsoIn(int fd, gid_t group) {
    std::vector<gid_t> groups(256);
    socklen_t size = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
    if (getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size) != 0) return false;
    groups.resize(size / sizeof(gid_t));
    return std::find(groups.begin(), groups.end(), group) != groups.end();
}

bool isOwner(const ucred& peer) { return peer.uid == 0 || peer.uid == geteuid(); }

}  // namespace

bool LocalSocket::isOwner(int fd) {
    const auto peer = credentialsOf(fd);
    return peer && Quil::isOwner(*peer);
}

bool LocalSocket::isTrusted(int fd) {
    const auto peer = credentialsOf(fd);
    return peer && (Quil::isOwner(*peer) || peer->gid == getegid() || isAlsoIn(fd, getegid()));
}

}  // namespace Quil
