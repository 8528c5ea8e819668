#include "common/EndSignals.h"

#include <sys/signalfd.h>

#include <csignal>

namespace Apps {

EndSignals::EndSignals(Quil::EventLoop& loop) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    fd_ = Mem::FileDescriptor(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!fd_) throw Quil::SystemException("signalfd failed");
    watch_.emplace(loop, fd_.get(), [&loop] { loop.stop(); });
}

}  // namespace Apps
