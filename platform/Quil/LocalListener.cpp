#include "Quil/LocalListener.h"

#include <sys/socket.h>

#include "Quil/LocalSocket.h"
#include "Quil/Trace.h"

namespace Quil {

LocalListener::LocalListener(EventLoop& loop, const String& directory, const String& name, int type,
                             std::function<void(FileDescriptor)> onPeer)
    : NotifieeConst(loop.clock()),
      loop_(loop),
      name_(name),
      onPeer_(std::move(onPeer)),
      socket_(LocalSocket::listen(directory, name.c_str(), type)) {
    watch();
}

LocalListener::~LocalListener() = default;

void LocalListener::watch() {
    try {
        watch_ = std::make_unique<EventLoop::Watch>(loop_, socket_.get(), [this] { accept(); });
    } catch (const SystemException&) {
        wakeupTimeIs(clock().now() + pause);
    }
}

void LocalListener::accept() {
    static Trace& trace = Trace::handler("Quil::AttrLog");
    FileDescriptor fd(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!fd) {
        // Descriptors may have run out: the connection waits in the backlog, and would wake the loop all the while.
        watch_.reset();
        return wakeupTimeIs(clock().now() + pause);
    }
    if (!LocalSocket::isTrusted(fd.get()))
        return trace.log(3, [&] { return cat("a sink of another group is refused at ", name_); });
    try {
        onPeer_(std::move(fd));
    } catch (const SystemException& error) {
        trace.log(3, [&] { return cat("a sink is disconnected: ", error.what()); });
    }
}

}  // namespace Quil
