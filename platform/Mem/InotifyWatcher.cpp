#include "Mem/InotifyWatcher.h"

#include <sys/inotify.h>
#include <unistd.h>

namespace Mem {

InotifyWatcher::InotifyWatcher(Quil::EventLoop& loop, const Quil::String& directory, std::function<void()> onChange,
                               Events events)
    : onChange_(std::move(onChange)), inotify_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    if (!inotify_) return;
    const std::uint32_t mask =
        events == appearing ? IN_CREATE | IN_MOVED_TO | IN_DELETE_SELF : IN_CLOSE_WRITE | IN_MOVED_TO;
    if (inotify_add_watch(inotify_.get(), directory.c_str(), mask) < 0) return;
    watch_ = std::make_unique<Quil::EventLoop::Watch>(loop, inotify_.get(), [this] { drain(); });
}

void InotifyWatcher::drain() {
    alignas(8) char events[4096];
    while (read(inotify_.get(), events, sizeof events) > 0) {
    }
    const auto call = onChange_;  // a copy: the callback may destroy this watcher
    call();
}

}  // namespace Mem
