#include "common/Ask.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>

#include "Quil/LocalSocket.h"

namespace Apps {
namespace {

constexpr std::size_t maxPacket = 128 << 10;  // of a size that a socket takes without being set up for it

// None when nothing has come; empty at the end.
std::optional<Quil::String> receive(int fd) {
    Quil::String packet(maxPacket, 0);
    const ssize_t size = recv(fd, packet.data(), packet.size(), MSG_DONTWAIT);
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) return std::nullopt;
    packet.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
    return packet;
}

bool send(int fd, const Json& json) {
    const Quil::String packet = json.dump(-1, ' ', false, Json::error_handler_t::replace);
    return packet.size() <= maxPacket &&
           ::send(fd, packet.data(), packet.size(), MSG_DONTWAIT | MSG_NOSIGNAL) == static_cast<ssize_t>(packet.size());
}

}  // namespace

AnswerSocket::AnswerSocket(Quil::EventLoop& loop, const Quil::String& directory, const char* name, Answer answer)
    : loop_(loop),
      answer_(std::move(answer)),
      listener_(loop, directory, name, SOCK_SEQPACKET, [this](Quil::FileDescriptor fd) { add(std::move(fd)); }) {}

void AnswerSocket::add(Quil::FileDescriptor fd) {
    if (clients_.size() == maxClients) clients_.pop_front();  // the one that has been here longest
    Client& client = clients_.emplace_back(Client{std::move(fd), nullptr});
    client.watch = std::make_unique<Quil::EventLoop::Watch>(loop_, client.fd.get(), [this, &client] {
        if (!serve(client)) clients_.remove_if([&client](const Client& other) { return &other == &client; });
    });
}

bool AnswerSocket::serve(const Client& client) const {
    const auto question = receive(client.fd.get());
    if (!question) return true;
    return !question->empty() &&
           send(client.fd.get(), answerTo(*question, Quil::LocalSocket::isOwner(client.fd.get())));
}

Json AnswerSocket::answerTo(const Quil::String& question, bool isOwner) const {
    try {
        return answer_(parseJson(question), isOwner);
    } catch (const Quil::Exception& error) {
        return {{"error", error.what()}};
    }
}

AskSocket::AskSocket(const Quil::String& directory, const char* name, int timeout)
    : timeout_(timeout), socket_(Quil::LocalSocket::connect(directory, name, SOCK_SEQPACKET)) {}

Json AskSocket::ask(const Json& question) const {
    pollfd wait{socket_.get(), POLLIN, 0};
    std::optional<Quil::String> packet;
    if (socket_ && send(socket_.get(), question) && poll(&wait, 1, timeout_) > 0) packet = receive(socket_.get());
    if (!packet || packet->empty()) throw Quil::SystemException("no agent answers");
    Json answer = parseJson(*packet);
    if (answer.is_object() && answer.contains("error")) {
        throw Quil::RangeException(answer["error"].get<Quil::String>());
    }
    return answer;
}

}  // namespace Apps
