// SourceFinder: keeps the merged directory equal to what the sources announce.
//
// A source listens on a socket in its directory under l2rib/input; the finder hears of directories and sockets by
// inotify, connects, and lets the source's records make its entry in the merged directory. When the connection ends,
// the entry is "not initialized" until the source is back and says otherwise; it goes when the socket has gone with the
// connection (the source has withdrawn itself), or when the source has not come back within the hold time.
//
// Threads   Event-loop thread.
// Errors    SystemException when the directory of the sources cannot be made.
#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <memory>

#include "L2Rib/SourceDirEntry.h"
#include "Mem/InotifyWatcher.h"
#include "Quil/AttrLogSink.h"

namespace Agent {

class SourceFinder : Quil::Clock::NotifieeConst {
 public:
    using Report = std::function<void(const Quil::String&)>;

    SourceFinder(Quil::EventLoop& loop, const Quil::String& root, Quil::Ptr<L2Rib::AgentSourceDir> sources,
                 Quil::Seconds hold, Report report);
    ~SourceFinder() override;

    // Every source that is there has said all it has to say.
    bool isSettled() const;

 private:
    // One directory of a source.
    class Link : Quil::Clock::NotifieeConst {
     public:
        Link(SourceFinder& finder, const Quil::Name& name);
        ~Link() override = default;
        bool isSettled() const;
        void look();  // a socket may have come; or another directory of this name

     private:
        void onTime() override;  // the hold time is over
        void onNews();           // in the directory
        void probe();
        void onAnswer();
        void onState();
        bool hasSocket() const;
        void withdraw(const char* why);

        SourceFinder& finder_;
        const Quil::Name name_;
        const Quil::String directory_;
        ino_t inode_ = 0;  // of the directory that is watched
        std::unique_ptr<Mem::InotifyWatcher> watcher_;
        Quil::Ptr<L2Rib::SourceDirEntry> entry_;  // in the directory; none before it has answered
        std::unique_ptr<Quil::AttrLogSink> sink_;
        bool isAway_ = false;  // and that has been said
    };

    void onTime() override { look(); }
    void look();

    Quil::EventLoop& loop_;
    const Quil::String directory_;
    const Quil::Ptr<L2Rib::AgentSourceDir> sources_;
    const Quil::Seconds hold_;
    const Report report_;
    std::map<Quil::Name, std::unique_ptr<Link>> links_;
    ino_t inode_ = 0;
    std::unique_ptr<Mem::InotifyWatcher> watcher_;
};

}  // namespace Agent
