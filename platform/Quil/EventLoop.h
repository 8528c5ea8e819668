// EventLoop.h: the one loop of a process: file descriptors (epoll) and the clock.
//
// Threads   run() and everything it calls stay on one thread.
#pragma once

#include <functional>
#include <unordered_map>

#include "Quil/Clock.h"
#include "Quil/Exception.h"

namespace Quil {

class L2RIB_EXPORT EventLoop {
 public:
    EventLoop();
    ~EventLoop();
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    // Calls back while the descriptor is readable (or closed by the other side), from construction to destruction.
    // The descriptor stays the caller's; the callback may destroy any watch, its own included.
    class L2RIB_EXPORT Watch {
     public:
        Watch(EventLoop& loop, int fd, std::function<void()> onReadable);
        ~Watch();
        Watch(const Watch&) = delete;
        Watch& operator=(const Watch&) = delete;

     private:
        friend class EventLoop;
        EventLoop& loop_;
        const int fd_;
        const std::uint64_t id_;
        const std::function<void()> onReadable_;
    };

    const Ptr<Clock>& clock() const { return clock_; }
    // Turns until stop() is called from a callback; not at all when that has been done before.
    void run();
    void stop() { stopped_ = true; }
    bool isStopped() const { return stopped_; }
    // One turn: waits for events or the clock, at most so long, and serves them.
    void runOnce(Seconds atMost);

 private:
    Ptr<Clock> clock_;
    const int epoll_;
    bool stopped_ = false;
    std::uint64_t lastId_ = 0;
    std::unordered_map<std::uint64_t, Watch*> watches_;
};

}  // namespace Quil
