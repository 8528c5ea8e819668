#include "Mem/ReaderKickSm.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "Mem/KickSocket.h"

namespace Mem {

ReaderKickSm::Handler::~Handler() = default;

std::unique_ptr<ReaderKickSm> ReaderKickSm::connect(Quil::EventLoop& loop, const Quil::String& directory,
                                                    const Quil::String& readerName, std::uint32_t fenix,
                                                    Handler& handler) {
    FileDescriptor socket = KickSocket::connect(directory);
    if (!socket) return nullptr;
    KickHello hello;
    hello.fenix = fenix;
    std::strncpy(hello.name, readerName.c_str(), sizeof hello.name - 1);
    if (send(socket.get(), &hello, sizeof hello, MSG_DONTWAIT | MSG_NOSIGNAL) != sizeof hello) return nullptr;
    return std::unique_ptr<ReaderKickSm>(new ReaderKickSm(loop, std::move(socket), handler));
}

ReaderKickSm::ReaderKickSm(Quil::EventLoop& loop, FileDescriptor socket, Handler& handler)
    : handler_(handler), socket_(std::move(socket)), watch_(loop, socket_.get(), [this] { receive(); }) {}

bool ReaderKickSm::acknowledge(const KickAck& ack) {
    // A closed socket tells of itself.
    return send(socket_.get(), &ack, sizeof ack, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0 || errno == EPIPE ||
           errno == ECONNRESET;
}

void ReaderKickSm::receive() {
    KickWelcome packet;
    const ssize_t size = recv(socket_.get(), &packet, sizeof packet, MSG_DONTWAIT);
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (size == sizeof(KickWelcome) && packet.type == kickWelcome && packet.version == kickVersion) {
        handler_.onWelcome(packet.fenix, packet.kicks != 0);
    } else if (size == sizeof(KickWake) && packet.type == kickWake) {
        handler_.onKick();
    } else {
        handler_.onClosed();
    }
}

}  // namespace Mem
