// Ask.h: questions to the agent that are answered once, in JSON: one packet each way.
#pragma once

#include <list>
#include <memory>

#include "Quil/LocalListener.h"
#include "common/JsonObject.h"

namespace Apps {

// The side that answers. Who asks and does not read the answer is disconnected.
//
// Threads   Event-loop thread.
class AnswerSocket {
 public:
    // What is wrong with a question is a range exception. isOwner: the other side is this user or root.
    using Answer = std::function<Json(const Json& question, bool isOwner)>;

    AnswerSocket(Quil::EventLoop& loop, const Quil::String& directory, const char* name, Answer answer);

 private:
    struct Client {
        Quil::FileDescriptor fd;
        std::unique_ptr<Quil::EventLoop::Watch> watch;
    };
    void add(Quil::FileDescriptor fd);
    bool serve(const Client& client) const;  // false: it is to be disconnected
    Json answerTo(const Quil::String& question, bool isOwner) const;

    static constexpr std::size_t maxClients = 64;
    Quil::EventLoop& loop_;
    const Answer answer_;
    std::list<Client> clients_;
    const Quil::LocalListener listener_;
};

// The side that asks. Blocks until the answer is there.
//
// Errors    SystemException when nobody answers within the milliseconds; RangeException with what is wrong with the
//           question.
class AskSocket {
 public:
    AskSocket(const Quil::String& directory, const char* name, int timeout);
    bool isConnected() const { return bool(socket_); }
    Json ask(const Json& question) const;

 private:
    const int timeout_;
    const Quil::FileDescriptor socket_;
};

}  // namespace Apps
