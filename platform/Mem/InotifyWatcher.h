// InotifyWatcher.h: calls back when files appear or change in a directory.
#pragma once

#include "Mem/Files.h"
#include "Quil/EventLoop.h"

namespace Mem {

class L2RIB_EXPORT InotifyWatcher {
 public:
    // A directory that cannot be watched (it is not there) gives a watcher that never calls: active() is false.
    InotifyWatcher(Quil::EventLoop& loop, const Quil::String& directory, std::function<void()> onChange);
    bool active() const { return active_; }

 private:
    void drain();
    const std::function<void()> onChange_;
    const FileDescriptor inotify_;
    const bool active_;
    const Quil::EventLoop::Watch watch_;
};

}  // namespace Mem
