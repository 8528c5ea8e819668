// L2RibClientSm.h: the class that a consumer derives from: told of every host it wants, with bounded work per turn.
//
//   class Programmer : public L2Rib::L2RibClientSm {
//    public:
//       using L2RibClientSm::L2RibClientSm;
//       void doAddHost(const Bridging::MacVlanPair& key) override    { ... l2RibOutput()->host(key) ... }
//       void doUpdateHost(const Bridging::MacVlanPair& key) override { ... }
//       void doRemoveHost(const Bridging::MacVlanPair& key) override { ... }
//    };
//
// Nothing happens before the first sourceFilterIs(). Changes are collected and handed over in reviews, each host once
// with its last state, in ascending order of keys; a review takes at most backlogQuantum() seconds (and the handler it
// is in) and goes on in the next turn of the loop. The review timer paces reviews: 4 credits, one more every 4 s, 0.1 s
// to 5 s of delay.
//
// Owner     The plug-in, by a counted pointer.
// Threads   Event-loop thread; handlers are called from the clock.
// Errors    What a handler throws ends the turn; its host stays to be reviewed. Damage of the table counts as absence.
// Kept      A host that changes to an unwanted source is not removed. A host that came and went before its review is
//           added all the same, with source none, and no later deletion removes it. The place where an unfinished pass
//           goes on is one for all clients of a process.
#pragma once

#include <map>
#include <unordered_map>

#include "Keel/ReviewTimer.h"
#include "L2Rib/Hash.h"
#include "L2Rib/HostKeyAndSource.h"
#include "L2Rib/Plugin/Context.h"

namespace L2Rib {

class L2RIB_EXPORT L2RibClientSm : public Quil::Entity {
 public:
    using Sources = std::unordered_map<Bridging::MacVlanPair, HostKeyAndSource, HashOf<Bridging::MacVlanPair>>;

    L2RibClientSm(Quil::String name, Quil::Ptr<Plugin::Context> pluginContext);
    ~L2RibClientSm() override;

    const Quil::Ptr<Plugin::Context>& pluginContext() const { return pluginContext_; }
    const Quil::Ptr<const HostOutput>& l2RibOutput() const { return l2RibOutput_; }
    const Quil::Ptr<const Quil::Clock>& clock() const { return clock_; }
    const Quil::Ptr<Keel::ReviewTimer>& reviewTimer() const { return reviewTimer_; }  // null until initialized
    std::uint32_t sourceFilter() const { return sourceFilter_; }
    const Sources& source() const { return source_; }  // every host as last delivered
    bool reviewedOnce() const { return reviewedOnce_; }
    // To be reviewed: true when the host is wanted, false when it is to be removed.
    const std::map<Bridging::MacVlanPair, bool>& changedHost() const { return changedHost_; }
    Quil::Seconds backlogQuantum() const { return backlogQuantum_; }
    void backlogQuantumIs(Quil::Seconds quantum) { backlogQuantum_ = quantum; }
    std::uint64_t hostsProcessed() const { return hostsProcessed_; }
    std::uint64_t yieldBeforeFinishingCount() const { return yieldBeforeFinishingCount_; }
    bool initialized() const { return initialized_; }

    // The sources whose hosts are wanted, a mask; 0 for none. The first call starts the machine.
    void sourceFilterIs(std::uint32_t filter);

    // The consumer's. The host's record is in l2RibOutput(), unless it has vanished meanwhile.
    virtual void doAddHost(const Bridging::MacVlanPair& key);
    virtual void doUpdateHost(const Bridging::MacVlanPair& key);
    virtual void doRemoveHost(const Bridging::MacVlanPair& key);

    // Delivers every wanted host again.
    void doReplayHosts();
    // The machine's own steps; called by its clock and by the watchers below.
    void doKickReview();
    void doSyncHosts();
    void doProcessHosts();
    void handleInitialized();
    void handleHost(const Bridging::MacVlanPair& key);
    void handleClock();
    void handleDelete();

    const Quil::Type& fwkType() const override;
    static void fwkDeclare(Quil::TypeBuilder<L2RibClientSm>& type);

 private:
    class QuilPluginContext : public Plugin::Context::NotifieeConst {
     public:
        explicit QuilPluginContext(L2RibClientSm& sm) : sm_(sm) {}
        void onL2RibOutput() override;
        void onClock() override;

     private:
        L2RibClientSm& sm_;
    };
    class QuilL2RibOutput : public HostOutput::NotifieeConst {
     public:
        explicit QuilL2RibOutput(L2RibClientSm& sm) : sm_(sm) {}
        void onHost(const Bridging::MacVlanPair& key) override { sm_.handleHost(key); }

     private:
        L2RibClientSm& sm_;
    };
    class QuilClock : public Quil::Clock::NotifieeConst {
     public:
        QuilClock(L2RibClientSm& sm, const Quil::Ptr<const Quil::Clock>& clock) : NotifieeConst(clock), sm_(sm) {}
        void onTime() override { sm_.handleClock(); }

     private:
        L2RibClientSm& sm_;
    };

    void l2RibOutputIs(const Quil::Ptr<const HostOutput>& l2RibOutput);
    void clockIs(const Quil::Ptr<const Quil::Clock>& clock);
    void makeReviewTimer();
    bool isWanted(const Bridging::MacVlanPair& key, bool& isPresent) const;
    void review(const Bridging::MacVlanPair& key, bool isWanted);

    const Quil::Ptr<Plugin::Context> pluginContext_;
    Quil::Ptr<const HostOutput> l2RibOutput_;
    Quil::Ptr<const Quil::Clock> clock_;
    Quil::Ptr<Keel::ReviewTimer> reviewTimer_;
    std::uint32_t sourceFilter_ = 0;
    Sources source_;
    bool reviewedOnce_ = false;
    std::map<Bridging::MacVlanPair, bool> changedHost_;
    Quil::Seconds backlogQuantum_ = 0.01;
    std::uint64_t hostsProcessed_ = 0;
    std::uint64_t yieldBeforeFinishingCount_ = 0;
    bool initialized_ = false;
    bool isDeleted_ = false;  // handleDelete() was called
    QuilPluginContext pluginContextReactor_{*this};
    QuilL2RibOutput l2RibOutputReactor_{*this};
};

L2RIB_EXPORT Quil::Ptr<L2RibClientSm> l2RibClientSmFactory(const Quil::String& name,
                                                           const Quil::Ptr<Plugin::Context>& pluginContext);

}  // namespace L2Rib
