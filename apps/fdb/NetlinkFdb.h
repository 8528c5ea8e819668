// NetlinkFdb: feeds a model from the kernel (rtnetlink).
//
// It subscribes first and dumps then; whatever changed during a dump is in the queue of notifications behind it. When
// that queue overflowed (ENOBUFS) or a dump was interrupted, everything is dumped again, at most once a second: no
// change is lost for good.
//
// Threads   Event-loop thread. Dumps block for the time the kernel takes.
// Errors    SystemException when netlink is not to be had.
#pragma once

#include <memory>

#include "Quil/Counter.h"
#include "Quil/EventLoop.h"
#include "common/Netlink.h"
#include "fdb/FdbModel.h"

namespace Fdb {

class NetlinkFdb : Quil::Clock::NotifieeConst {
 public:
    // onLinks is called when links have changed, before the entries that name them; onWhole after each dump that was
    // not interrupted.
    NetlinkFdb(Quil::EventLoop& loop, Model& model, std::function<void()> onLinks, std::function<void()> onWhole);
    ~NetlinkFdb() override;
    const Quil::Counter& resyncs() const { return resyncs_; }

 private:
    static constexpr Quil::Seconds resyncInterval = 1;

    void receive();
    void discardEvents();
    void onTime() override;  // a resynchronisation is due
    void askResync();
    template <class F>
    void guarded(F&& work);
    void resync();
    void handle(const nlmsghdr* message);
    void handleLink(const nlmsghdr* message);
    void handleNeighbour(const nlmsghdr* message);
    void handleNextHop(const nlmsghdr* message);

    Model& model_;
    const std::function<void()> onLinks_;
    const std::function<void()> onWhole_;
    Quil::String lastError_;
    Quil::Counter resyncs_{"fdbResync"};
    Quil::Seconds lastResync_ = 0;
    const Netlink::Socket events_;
    const Quil::EventLoop::Watch watch_;
};

}  // namespace Fdb
