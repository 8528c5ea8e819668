#include "Mem/KickQuery.h"

#include <poll.h>
#include <sys/socket.h>

#include <cstring>

#include "Mem/KickSocket.h"

namespace Mem {
namespace {

template <class Packet>
std::optional<Packet> packetAs(const char* bytes, ssize_t size, KickType type) {
    Packet packet;
    if (size != static_cast<ssize_t>(sizeof packet)) return std::nullopt;
    std::memcpy(static_cast<void*>(&packet), bytes, sizeof packet);
    return packet.type == type ? std::optional(packet) : std::nullopt;
}

}  // namespace

std::optional<ReaderList> askForReaders(const Quil::String& directory, int timeout) {
    const FileDescriptor socket = KickSocket::connect(directory);
    const KickQuery query;
    if (!socket || send(socket.get(), &query, sizeof query, MSG_NOSIGNAL) != sizeof query) return std::nullopt;
    ReaderList list;
    for (;;) {
        pollfd wait{socket.get(), POLLIN, 0};
        if (poll(&wait, 1, timeout) <= 0) return std::nullopt;
        char packet[sizeof(KickReader)] = {};
        const ssize_t size = recv(socket.get(), packet, sizeof packet, 0);
        if (const auto reader = packetAs<KickReader>(packet, size, kickReader)) {
            list.readers.push_back(*reader);
            list.readers.back().name[sizeof reader->name - 1] = 0;
        } else if (const auto end = packetAs<KickEnd>(packet, size, kickEnd)) {
            list.sequence = end->sequence;
            return list;
        } else {
            return std::nullopt;
        }
    }
}

}  // namespace Mem
