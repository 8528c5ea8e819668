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
#include "fdb/FdbModel.h"

struct mnl_socket;
struct nlmsghdr;

namespace Fdb {

class NetlinkFdb : Quil::Clock::NotifieeConst {
 public:
    // onLinks is called when links have changed, before the entries that name them.
    NetlinkFdb(Quil::EventLoop& loop, Model& model, std::function<void()> onLinks);
    ~NetlinkFdb() override;
    const Quil::Counter& resyncs() const { return resyncs_; }

 private:
    struct Close {
        void operator()(mnl_socket* socket) const;
    };
    using Socket = std::unique_ptr<mnl_socket, Close>;
    static constexpr Quil::Seconds resyncInterval = 1;
    static constexpr int receiveBuffer = 16 << 20;  // bytes

    static Socket open(unsigned groups);
    void receive();
    void discardEvents();
    void onTime() override;  // a resynchronisation is due
    void askResync();
    void resync();
    bool dump(std::uint16_t type, std::uint8_t family);                  // false when it was interrupted
    bool handleDump(const void* packet, std::size_t size, bool& whole);  // false after the last message
    void handle(const nlmsghdr* message);
    void handleLink(const nlmsghdr* message);
    void handleNeighbour(const nlmsghdr* message);

    Model& model_;
    const std::function<void()> onLinks_;
    Quil::Counter resyncs_{"fdbResync"};
    Quil::Seconds lastResync_ = 0;
    const Socket events_;
    const Quil::EventLoop::Watch watch_;
};

}  // namespace Fdb
