#include "fdb/NetlinkFdb.h"

#include <linux/if_link.h>
#include <linux/nexthop.h>
#include <sys/socket.h>

#include <cerrno>
#include <exception>
#include <vector>

#include "Quil/Trace.h"

namespace Fdb {
namespace {

constexpr std::uint16_t ndaFlagsExt = 15;  // NDA_FLAGS_EXT, from Linux 5.16 on

}  // namespace

NetlinkFdb::NetlinkFdb(Quil::EventLoop& loop, Model& model, std::function<void()> onLinks,
                       std::function<void()> onWhole)
    : NotifieeConst(loop.clock()),
      model_(model),
      onLinks_(std::move(onLinks)),
      onWhole_(std::move(onWhole)),
      events_(Netlink::open(RTMGRP_NEIGH | RTMGRP_LINK, {RTNLGRP_NEXTHOP})),
      watch_(loop, mnl_socket_get_fd(events_.get()), [this] { receive(); }) {
    resync();
}

NetlinkFdb::~NetlinkFdb() = default;

void NetlinkFdb::receive() {
    constexpr int batch = 256;  // messages a turn, so that the loop's other work goes on
    std::vector<char> buffer(Netlink::packetSize);
    const int fd = mnl_socket_get_fd(events_.get());
    for (int i = 0; i < batch; ++i) {
        const ssize_t size = recv(fd, buffer.data(), buffer.size(), MSG_DONTWAIT | MSG_TRUNC);
        if (size < 0 && errno == ENOBUFS) askResync();
        if (size <= 0) break;
        if (static_cast<std::size_t>(size) > buffer.size()) {
            askResync();  // a message too long to be read
            continue;
        }
        int left = static_cast<int>(size);
        for (auto* message = reinterpret_cast<const nlmsghdr*>(buffer.data()); mnl_nlmsg_ok(message, left);
             message = mnl_nlmsg_next(message, &left)) {
            guarded([&] { handle(message); });
        }
    }
}

// What stands in the queue is older than the dump that follows; after an overflow it even lacks what came between.
void NetlinkFdb::discardEvents() {
    char byte;
    const int fd = mnl_socket_get_fd(events_.get());
    while (recv(fd, &byte, 1, MSG_DONTWAIT) >= 0 || errno == ENOBUFS || errno == EINTR) {
    }
}

void NetlinkFdb::askResync() {
    if (wakeupTime() == Quil::never) wakeupTimeIs(std::max(clock().now(), lastResync_ + resyncInterval));
}

void NetlinkFdb::onTime() {
    ++resyncs_;
    guarded([this] { resync(); });
}

// At the start a failure is fatal; later it is said, once, and all is read again until it works.
template <class F>
void NetlinkFdb::guarded(F&& work) {
    try {
        work();
    } catch (const Quil::Exception& error) {
        if (std::exchange(lastError_, error.what()) != error.what()) {
            Quil::Trace::handler("Fdb").log(3, [&] { return Quil::String(error.what()); });
        }
        askResync();
    }
}

void NetlinkFdb::resync() {
    lastResync_ = clock().now();
    discardEvents();
    model_.dumpBegins();
    // What cannot be published keeps neither the rest of the dump nor its end from counting.
    std::exception_ptr first;
    const auto attempt = [&](auto&& work) {
        try {
            work();
        } catch (const Quil::Exception&) {
            if (!first) first = std::current_exception();
        }
    };
    const auto take = [&](const nlmsghdr* message) { attempt([&] { handle(message); }); };
    bool whole = Netlink::dump(RTM_GETLINK, AF_UNSPEC, take);
    onLinks_();
    whole = Netlink::dump(RTM_GETNEXTHOP, AF_UNSPEC, take) && whole;
    whole = Netlink::dump(RTM_GETNEIGH, AF_BRIDGE, take) && whole;
    if (whole) attempt([this] { model_.dumpEnds(); });
    if (first) std::rethrow_exception(first);
    if (whole) {
        onLinks_();
        lastError_.clear();
        onWhole_();
    } else {
        askResync();  // nothing is swept away on the word of half a dump
    }
}

void NetlinkFdb::handle(const nlmsghdr* message) {
    switch (message->nlmsg_type) {
        case RTM_NEWLINK:
        case RTM_DELLINK:
            handleLink(message);
            break;
        case RTM_NEWNEIGH:
        case RTM_DELNEIGH:
            handleNeighbour(message);
            break;
        case RTM_NEWNEXTHOP:
        case RTM_DELNEXTHOP:
            handleNextHop(message);
            break;
        default:
            break;
    }
}

void NetlinkFdb::handleLink(const nlmsghdr* message) {
    if (mnl_nlmsg_get_payload_len(message) < sizeof(ifinfomsg)) return;
    const auto* info = static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(message));
    const auto index = static_cast<std::uint32_t>(info->ifi_index);
    if (message->nlmsg_type == RTM_DELLINK) {
        // A port that leaves its bridge is told of with the family of bridges; only the others mean the device itself.
        if (info->ifi_family == AF_BRIDGE) return;
        model_.linkDel(index);
        onLinks_();
        askResync();  // the kernel hands permanent entries of a port over without a word
        return;
    }
    if (info->ifi_family == AF_BRIDGE) return;  // port attributes, without the device's own
    const Netlink::Attributes<IFLA_LINKINFO + 1> attributes(message, sizeof(ifinfomsg));
    Link link;
    if (attributes.at[IFLA_IFNAME]) link.name = mnl_attr_get_str(attributes.at[IFLA_IFNAME]);
    link.master = attributes.u32(IFLA_MASTER);
    link.address = attributes.mac(IFLA_ADDRESS);
    link.isVxlan = Netlink::isVxlan(attributes.at[IFLA_LINKINFO]);
    model_.linkIs(index, link);
    if (message->nlmsg_seq == 0) onLinks_();  // a notification; after a dump they are told of together
}

void NetlinkFdb::handleNeighbour(const nlmsghdr* message) {
    if (mnl_nlmsg_get_payload_len(message) < sizeof(ndmsg)) return;
    const auto* neighbour = static_cast<const ndmsg*>(mnl_nlmsg_get_payload(message));
    if (neighbour->ndm_family != AF_BRIDGE) return;
    const Netlink::Attributes<ndaFlagsExt + 1> attributes(message, sizeof(ndmsg));
    if (!attributes.holds(NDA_LLADDR, 6)) return;
    Entry entry;
    entry.device = static_cast<std::uint32_t>(neighbour->ndm_ifindex);
    entry.bridge = attributes.u32(NDA_MASTER);
    entry.mac = attributes.mac(NDA_LLADDR);
    entry.vlan = attributes.u16(NDA_VLAN);
    entry.state = neighbour->ndm_state;
    entry.flags = neighbour->ndm_flags;
    entry.flagsExt = attributes.u32(ndaFlagsExt);
    entry.srcVni = attributes.u32(NDA_SRC_VNI);
    entry.nextHopGroup = attributes.u32(NDA_NH_ID);
    entry.dst = Netlink::addressIn(attributes.at[NDA_DST]);
    message->nlmsg_type == RTM_NEWNEIGH ? model_.entryIs(entry) : model_.entryDel(entry);
}

void NetlinkFdb::handleNextHop(const nlmsghdr* message) {
    if (mnl_nlmsg_get_payload_len(message) < sizeof(nhmsg)) return;
    const Netlink::Attributes<NHA_FDB + 1> attributes(message, sizeof(nhmsg));
    const NextHopId id = attributes.u32(NHA_ID);
    if (message->nlmsg_type == RTM_DELNEXTHOP) return model_.nextHopDel(id);
    if (!attributes.at[NHA_FDB]) return;  // of routes
    NextHop nextHop;
    nextHop.via = Netlink::addressIn(attributes.at[NHA_GATEWAY]);
    if (const nlattr* group = attributes.at[NHA_GROUP]) {
        nextHop.isGroup = true;
        nextHop.members = Netlink::groupMembersIn(group);
    }
    model_.nextHopIs(id, nextHop);
}

}  // namespace Fdb
