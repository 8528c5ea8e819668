#include "Quil/EventLoop.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

namespace Quil {

EventLoop::EventLoop() : clock_(makePtr<RealClock>()), epoll_(epoll_create1(EPOLL_CLOEXEC)) {
    if (epoll_ < 0) throw SystemException(cat("epoll_create1: ", std::strerror(errno)));
}

EventLoop::~EventLoop() { close(epoll_); }

EventLoop::Watch::Watch(EventLoop& loop, int fd, std::function<void()> onReadable)
    : loop_(loop), fd_(fd), id_(++loop.lastId_), onReadable_(std::move(onReadable)) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = id_;
    if (epoll_ctl(loop.epoll_, EPOLL_CTL_ADD, fd, &event) != 0) {
        throw SystemException(cat("epoll_ctl: ", std::strerror(errno)));
    }
    loop.watches_[id_] = this;
}

EventLoop::Watch::~Watch() {
    loop_.watches_.erase(id_);
    epoll_ctl(loop_.epoll_, EPOLL_CTL_DEL, fd_, nullptr);
}

void EventLoop::run() {
    while (!stopped_) runOnce(never);
    stopped_ = false;
}

void EventLoop::runOnce(Seconds atMost) {
    const Seconds wait = std::clamp(clock_->nextWakeup() - clock_->now(), 0.0, atMost);
    const int milliseconds = std::isinf(wait) ? -1 : static_cast<int>(std::ceil(std::min(wait, 3600.0) * 1000));
    epoll_event events[32];
    const int count = epoll_wait(epoll_, events, 32, milliseconds);
    if (count < 0 && errno != EINTR) throw SystemException(cat("epoll_wait: ", std::strerror(errno)));
    for (int i = 0; i < count; ++i) {
        const auto found = watches_.find(events[i].data.u64);
        if (found == watches_.end()) continue;             // removed by an earlier callback of this turn
        const auto callback = found->second->onReadable_;  // a copy: the callback may destroy its watch
        callback();
    }
    clock_->run();
}

}  // namespace Quil
