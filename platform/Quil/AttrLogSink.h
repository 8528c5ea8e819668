// AttrLogSink.h: keeps a tree of entities like one in another process, through its setters: watchers are told as they
// are there.
//
// It connects when the source is there and again when it comes back. After a reconnection everything is sent once more;
// what is the same tells nobody, and what has gone meanwhile is removed when the source says that it is synchronised.
// While there is no source, the tree stays as it was.
//
// Owner     The process that reads the tree.
// Threads   Event-loop thread. A watcher may throw or destroy the sink: what it was told counts as told. But a range
//           exception counts as that of the record.
// Errors    A record that is malformed, too long or does not fit the tree closes the connection, with one line at trace
//           level 3, handle "Quil::AttrLog"; it is tried again a little later.
#pragma once

#include <deque>
#include <memory>
#include <set>

#include "Quil/AttrLogRecord.h"
#include "Quil/EventLoop.h"
#include "Quil/FileDescriptor.h"

namespace Quil {

class L2RIB_EXPORT AttrLogSink : Clock::NotifieeConst {
 public:
    // onState: connected, synchronised or disconnected; may be empty. startAt: the first of the root's scalars wanted.
    AttrLogSink(EventLoop& loop, String directory, String name, Ptr<Entity> root, std::function<void()> onState = {},
                std::uint16_t startAt = 1);
    ~AttrLogSink() override;

    bool isConnected() const { return bool(fd_); }
    bool isSynchronised() const { return isSynchronised_; }
    // Tries at once; for one who knows that the source has just come. Otherwise it is tried 10 times a second at first,
    // then less often, once in 5 s at last, until a source has told everything.
    void connectNow();
    // Asks the source to set one of the root's scalars to its value in this entity, of the root's type; whether that
    // could be sent. A source that takes it answers with the change, to every sink. The range exception for an
    // attribute that is no scalar.
    bool ask(const Entity& wanted, std::uint16_t attribute);

 private:
    static constexpr Seconds minRetry = 0.1, maxRetry = 5, faultPause = 0.25;
    void onTime() override;
    void connect();
    void receive();
    void takeRecords();
    bool takeRecord();
    void apply(const AttrLogRecord& record);
    void noteSeen(const AttrLogRecord& record);
    void findUnseen(Entity& entity, AttrLogRecord::Path& path);
    void removeUnseen();
    void disconnect(Seconds pause);
    void tell() {
        const auto call = onState_;  // it may destroy this object
        if (call) call();
    }

    EventLoop& loop_;
    const String directory_, name_;
    const Ptr<Entity> root_;
    const std::function<void()> onState_;
    const std::uint16_t startAt_;
    FileDescriptor fd_;
    std::unique_ptr<EventLoop::Watch> watch_;
    AttrLogRecord::Bytes buffer_;
    std::size_t taken_ = 0;  // bytes of the buffer
    const std::shared_ptr<void> alive_ = std::make_shared<int>();
    bool isSynchronised_ = false;
    Seconds retry_ = minRetry;
    // Members and children told of since the connection began, until all is told; and what is to go then.
    std::set<AttrLogRecord::Path> seen_;
    std::deque<AttrLogRecord> unseen_;
    bool isTold_ = false;
};

}  // namespace Quil
