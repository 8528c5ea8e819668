#include "Mem/WriterKickSm.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Mem/KickProtocol.h"
#include "Mem/KickSocket.h"

namespace Mem {

WriterKickSm::Handler::~Handler() = default;

WriterKickSm::WriterKickSm(Quil::EventLoop& loop, const Quil::String& directory, bool kicks, Handler& handler)
    : NotifieeConst(loop.clock()),
      loop_(loop),
      kicks_(kicks),
      handler_(handler),
      socket_(KickSocket::listen(directory)) {
    listen();
}

WriterKickSm::~WriterKickSm() = default;

std::uint64_t WriterKickSm::lowestSequence() const {
    std::uint64_t lowest = noReader;
    for (const Reader& reader : readers_) {
        if (reader.welcomed) lowest = std::min(lowest, reader.sequence);
    }
    return lowest;
}

std::uint32_t WriterKickSm::numReaders() const {
    return static_cast<std::uint32_t>(
        std::count_if(readers_.begin(), readers_.end(), [](const Reader& reader) { return reader.welcomed; }));
}

void WriterKickSm::onTime() {
    if (!watch_) listen();
    kickSleepers();
}

void WriterKickSm::listen() {
    watch_ = std::make_unique<Quil::EventLoop::Watch>(loop_, socket_.get(), [this] { accept(); });
}

WriterKickSm::Accepted WriterKickSm::accept() {
    FileDescriptor fd(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!fd) {
        if (errno == EAGAIN) return Accepted::nobody;
        if (errno == EINTR || errno == ECONNABORTED) return Accepted::one;  // and who comes next
        watch_.reset();  // the connection stays pending; asking again at once would only spin
        wakeupTimeIs(clock().now() + pause);
        return Accepted::failed;
    }
    Reader& reader = readers_.emplace_back();
    reader.socket = std::move(fd);
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(reader.socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0) reader.pid = peer.pid;
    try {
        reader.watch =
            std::make_unique<Quil::EventLoop::Watch>(loop_, reader.socket.get(), [this, &reader] { receive(reader); });
    } catch (const Quil::SystemException&) {
        hasOutcasts_ = true;
        readers_.pop_back();  // it will come back
    }
    return Accepted::one;
}

bool WriterKickSm::acceptAll() {
    for (;;) {
        const Accepted accepted = accept();
        if (accepted != Accepted::one) return accepted == Accepted::nobody;
    }
}

bool WriterKickSm::allAreWelcomed() { return acceptAll() && numReaders() == readers_.size(); }

bool WriterKickSm::allHaveMapped(std::uint32_t slotCounter, std::uint32_t bucketCounter) {
    return acceptAll() && std::all_of(readers_.begin(), readers_.end(), [&](const Reader& reader) {
               return reader.acknowledged && reader.slotCounter == slotCounter && reader.bucketCounter == bucketCounter;
           });
}

bool WriterKickSm::dropSlowest() {
    const auto slowest = std::min_element(readers_.begin(), readers_.end(),
                                          [](const Reader& a, const Reader& b) { return a.sequence < b.sequence; });
    if (slowest == readers_.end()) return false;
    hasOutcasts_ = true;
    drop(*slowest);
    return true;
}

void WriterKickSm::receive(Reader& reader) {
    alignas(8) char packet[sizeof(KickHello)];
    for (int i = 0; i < packetsPerTurn; ++i) {
        const ssize_t size = recv(reader.socket.get(), packet, sizeof packet, MSG_DONTWAIT);
        if (size < 0 && (errno == EAGAIN || errno == EINTR)) break;
        if (size > 0 && handle(reader, packet, static_cast<std::size_t>(size))) continue;
        hasOutcasts_ = hasOutcasts_ || size > 0;  // it did not leave by itself
        drop(reader);
        break;
    }
    handler_.onReaders();
}

// False when the packet is not of this protocol.
bool WriterKickSm::handle(Reader& reader, const void* packet, std::size_t size) {
    std::uint32_t type = 0;
    std::memcpy(&type, packet, std::min(size, sizeof type));
    if (!reader.welcomed && type == kickHello && size == sizeof(KickHello)) {
        KickHello hello;
        std::memcpy(&hello, packet, sizeof hello);
        if (hello.version != kickVersion) return false;
        reader.name.assign(hello.name, strnlen(hello.name, sizeof hello.name));
        reader.since = clock().now();
        reader.sequence = 0;  // until it says what it has seen
        reader.welcomed = true;
        KickWelcome welcome;
        welcome.fenix = fenix_;
        welcome.kicks = kicks_;
        const ssize_t sent = send(reader.socket.get(), &welcome, sizeof welcome, MSG_DONTWAIT | MSG_NOSIGNAL);
        return sent == sizeof welcome || errno == EPIPE || errno == ECONNRESET;  // it has left: the next look sees it
    }
    if (!reader.welcomed && type == kickQuery && size == sizeof(KickQuery)) {
        tellReaders(reader);
        return true;
    }
    if (reader.welcomed && type == kickAck && size == sizeof(KickAck)) {
        KickAck ack;
        std::memcpy(&ack, packet, sizeof ack);
        const std::uint64_t before = reader.sequence, current = handler_.sequence();
        reader.acknowledged = true;
        reader.sequence = std::max(before, std::min(ack.sequence, current));
        reader.slotCounter = ack.slotCounter;
        reader.bucketCounter = ack.bucketCounter;
        sleepingIs(reader, ack.sleeping != 0);
        // ORDER sleep: the reader slept on a state that has moved on meanwhile; its wake-up is due now.
        if (reader.sleeping && ack.sequence < current) kick(reader);
        handler_.onAcknowledge(reader, before);
        return true;
    }
    return false;
}

void WriterKickSm::tellReaders(Reader& asking) {
    const auto tell = [&](const auto& packet) {
        send(asking.socket.get(), &packet, sizeof packet, MSG_DONTWAIT | MSG_NOSIGNAL);
    };
    for (const Reader& reader : readers_) {
        if (!reader.welcomed) continue;
        KickReader packet;
        packet.pid = static_cast<std::uint32_t>(reader.pid);
        packet.sequence = reader.sequence;
        packet.age = static_cast<std::uint32_t>(clock().now() - reader.since);
        packet.sleeping = reader.sleeping;
        reader.name.copy(packet.name, sizeof packet.name - 1);
        tell(packet);
    }
    KickEnd end;
    end.readers = numReaders();
    end.sequence = handler_.sequence();
    tell(end);
}

void WriterKickSm::sleepingIs(Reader& reader, bool sleeping) {
    sleeping = sleeping && kicks_;
    sleepers_ += static_cast<std::uint32_t>(sleeping) - static_cast<std::uint32_t>(reader.sleeping);
    reader.sleeping = sleeping;
}

void WriterKickSm::kick(Reader& reader) {
    const KickWake wake;
    // A full socket means that a wake-up is under way already; the reader stays marked and is tried again.
    if (send(reader.socket.get(), &wake, sizeof wake, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0 || errno == EPIPE ||
        errno == ECONNRESET) {
        sleepingIs(reader, false);
    } else if (errno != EAGAIN) {
        wakeupTimeIs(clock().now() + pause);  // the kernel is out of memory
    }
}

void WriterKickSm::kickSleepers() {
    for (Reader& reader : readers_) {
        if (reader.sleeping) kick(reader);
    }
}

void WriterKickSm::drop(Reader& reader) {
    sleepingIs(reader, false);
    readers_.remove_if([&](const Reader& candidate) { return &candidate == &reader; });
}

}  // namespace Mem
