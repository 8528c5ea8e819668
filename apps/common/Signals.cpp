#include "common/Signals.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>

namespace Apps {

Signals::Signals(Quil::EventLoop& loop, std::initializer_list<int> signals, std::function<void()> onSignal) {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : signals) sigaddset(&set, signal);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    fd_ = Mem::FileDescriptor(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!fd_) throw Quil::SystemException("signalfd failed");
    watch_.emplace(loop, fd_.get(), [fd = fd_.get(), onSignal = std::move(onSignal)] {
        signalfd_siginfo info;
        if (read(fd, &info, sizeof info) == sizeof info) onSignal();
    });
}

EndSignals::EndSignals(Quil::EventLoop& loop) : Signals(loop, {SIGTERM, SIGINT}, [&loop] { loop.stop(); }) {}

}  // namespace Apps
