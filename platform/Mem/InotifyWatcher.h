// InotifyWatcher.h: calls back when files appear in a directory, or when their contents have been written.
#pragma once

#include <memory>

#include "Mem/Files.h"
#include "Quil/EventLoop.h"

namespace Mem {

class L2RIB_EXPORT InotifyWatcher {
 public:
    enum Events { appearing, written };  // written: closed after writing, or moved there

    // A directory that cannot be watched (it is not there, or the user's instances have run out) gives a watcher that
    // never calls: active() is false.
    InotifyWatcher(Quil::EventLoop& loop, const Quil::String& directory, std::function<void()> onChange,
                   Events events = appearing);
    bool active() const { return watch_ != nullptr; }

 private:
    void drain();
    const std::function<void()> onChange_;
    const FileDescriptor inotify_;
    std::unique_ptr<Quil::EventLoop::Watch> watch_;
};

}  // namespace Mem
