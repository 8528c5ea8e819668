// LocalListener.h: listens on a Unix-domain socket in a directory and hands over whoever connects.
//
// Threads   Event-loop thread.
// Errors    SystemException at construction. While descriptors have run out, connections wait in the backlog.
#pragma once

#include <memory>

#include "Quil/EventLoop.h"
#include "Quil/FileDescriptor.h"

namespace Quil {

class L2RIB_EXPORT LocalListener : Clock::NotifieeConst {
 public:
    // onPeer is given each connection of this user's, of its group's or of root; others are refused, and traced.
    LocalListener(EventLoop& loop, const String& directory, const String& name, int type,
                  std::function<void(FileDescriptor)> onPeer);
    ~LocalListener() override;

 private:
    static constexpr Seconds pause = 0.1;
    void onTime() override { watch(); }
    void watch();
    void accept();

    EventLoop& loop_;
    const String name_;
    const std::function<void(FileDescriptor)> onPeer_;
    const FileDescriptor socket_;
    std::unique_ptr<EventLoop::Watch> watch_;
};

}  // namespace Quil
