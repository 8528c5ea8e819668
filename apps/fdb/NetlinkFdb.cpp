#include "fdb/NetlinkFdb.h"

#include <libmnl/libmnl.h>
#include <linux/if_link.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "Quil/Trace.h"

namespace Fdb {
namespace {

[[noreturn]] void fail(const char* operation) {
    throw Quil::SystemException(Quil::cat("netlink: ", operation, ": ", std::strerror(errno)));
}

constexpr std::uint16_t ndaFlagsExt = 15;  // NDA_FLAGS_EXT, from Linux 5.16 on

constexpr std::size_t packetSize = 32768;  // the most the kernel puts into one packet of a dump

// Calls visit(attribute) for each attribute between the two ends.
template <class F>
void forEachAttribute(const void* first, const void* end, F&& visit) {
    const auto left = [&](const nlattr* at) {
        return static_cast<int>(static_cast<const char*>(end) - reinterpret_cast<const char*>(at));
    };
    for (auto* at = static_cast<const nlattr*>(first); mnl_attr_ok(at, left(at)); at = mnl_attr_next(at)) visit(at);
}

// The attributes of a message by number; null for one that is absent.
template <std::size_t N>
struct Attributes {
    const nlattr* at[N] = {};
    Attributes(const nlmsghdr* message, unsigned headerSize) {
        forEachAttribute(mnl_nlmsg_get_payload_offset(message, headerSize), mnl_nlmsg_get_payload_tail(message),
                         [&](const nlattr* attribute) {
                             if (mnl_attr_get_type(attribute) < N) at[mnl_attr_get_type(attribute)] = attribute;
                         });
    }
    bool holds(std::size_t type, std::size_t size) const {
        return at[type] && mnl_attr_get_payload_len(at[type]) >= size;
    }
    std::uint32_t u32(std::size_t type) const { return holds(type, 4) ? mnl_attr_get_u32(at[type]) : 0; }
    std::uint16_t u16(std::size_t type) const { return holds(type, 2) ? mnl_attr_get_u16(at[type]) : std::uint16_t(0); }
    Lanx::EthAddr mac(std::size_t type) const {
        std::array<std::uint8_t, 6> bytes{};
        if (holds(type, 6)) std::memcpy(bytes.data(), mnl_attr_get_payload(at[type]), 6);
        return Lanx::EthAddr(bytes);
    }
};

std::optional<Lanx::IpGenAddr> addressIn(const nlattr* attribute) {
    if (!attribute) return std::nullopt;
    const void* bytes = mnl_attr_get_payload(attribute);
    if (mnl_attr_get_payload_len(attribute) == 4) {
        std::uint32_t wire;
        std::memcpy(&wire, bytes, 4);
        return Lanx::IpGenAddr::fromIp4(__builtin_bswap32(wire));
    }
    if (mnl_attr_get_payload_len(attribute) != 16) return std::nullopt;
    std::array<std::uint8_t, 16> address;
    std::memcpy(address.data(), bytes, 16);
    return Lanx::IpGenAddr::fromIp6(address);
}

bool isVxlan(const nlattr* linkInfo) {
    if (!linkInfo) return false;
    const auto* first = static_cast<const char*>(mnl_attr_get_payload(linkInfo));
    bool found = false;
    forEachAttribute(first, first + mnl_attr_get_payload_len(linkInfo), [&](const nlattr* attribute) {
        const bool isKind = mnl_attr_get_type(attribute) == IFLA_INFO_KIND;
        found = found || (isKind && std::string_view(mnl_attr_get_str(attribute)) == "vxlan");
    });
    return found;
}

}  // namespace

void NetlinkFdb::Close::operator()(mnl_socket* socket) const { mnl_socket_close(socket); }

NetlinkFdb::Socket NetlinkFdb::open(unsigned groups) {
    Socket socket(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC));
    if (!socket) fail("socket");
    const int fd = mnl_socket_get_fd(socket.get());
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &receiveBuffer, sizeof receiveBuffer) != 0) {
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    }
    if (mnl_socket_bind(socket.get(), groups, MNL_SOCKET_AUTOPID) != 0) fail("bind");
    return socket;
}

NetlinkFdb::NetlinkFdb(Quil::EventLoop& loop, Model& model, std::function<void()> onLinks)
    : NotifieeConst(loop.clock()),
      model_(model),
      onLinks_(std::move(onLinks)),
      events_(open(RTMGRP_NEIGH | RTMGRP_LINK)),
      watch_(loop, mnl_socket_get_fd(events_.get()), [this] { receive(); }) {
    resync();
}

NetlinkFdb::~NetlinkFdb() = default;

void NetlinkFdb::receive() {
    constexpr int batch = 256;  // messages a turn, so that the loop's other work goes on
    std::vector<char> buffer(packetSize);
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
            handle(message);
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
    try {
        resync();
    } catch (const Quil::SystemException& error) {
        Quil::Trace::handler("Fdb").log(3, [&] { return Quil::String(error.what()); });
        askResync();  // at the start it is fatal; later it is tried until it works
    }
}

void NetlinkFdb::resync() {
    lastResync_ = clock().now();
    discardEvents();
    model_.dumpBegins();
    bool whole = dump(RTM_GETLINK, AF_UNSPEC);
    onLinks_();
    whole = dump(RTM_GETNEIGH, AF_BRIDGE) && whole;
    if (whole) {
        model_.dumpEnds();
        onLinks_();
    } else {
        askResync();  // nothing is swept away on the word of half a dump
    }
}

bool NetlinkFdb::dump(std::uint16_t type, std::uint8_t family) {
    const Socket socket = open(0);
    std::vector<char> buffer(packetSize);
    nlmsghdr* request = mnl_nlmsg_put_header(buffer.data());
    request->nlmsg_type = type;
    request->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request->nlmsg_seq = 1;
    if (type == RTM_GETLINK) {
        static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(request, sizeof(ifinfomsg)))->ifi_family = family;
    } else {
        static_cast<ndmsg*>(mnl_nlmsg_put_extra_header(request, sizeof(ndmsg)))->ndm_family = family;
    }
    if (mnl_socket_sendto(socket.get(), request, request->nlmsg_len) < 0) fail("dump request");
    for (bool whole = true;;) {
        const ssize_t size = mnl_socket_recvfrom(socket.get(), buffer.data(), buffer.size());
        if (size < 0 && errno == EINTR) continue;
        if (size < 0) fail("dump");
        if (!handleDump(buffer.data(), static_cast<std::size_t>(size), whole)) return whole;
    }
}

bool NetlinkFdb::handleDump(const void* packet, std::size_t size, bool& whole) {
    int left = static_cast<int>(size);
    for (auto* message = static_cast<const nlmsghdr*>(packet); mnl_nlmsg_ok(message, left);
         message = mnl_nlmsg_next(message, &left)) {
        if (message->nlmsg_flags & NLM_F_DUMP_INTR) whole = false;
        if (message->nlmsg_type == NLMSG_DONE) {
            // The end of a dump may carry an error.
            std::int32_t error = 0;
            if (mnl_nlmsg_get_payload_len(message) >= sizeof error) {
                std::memcpy(&error, mnl_nlmsg_get_payload(message), sizeof error);
            }
            whole = whole && error >= 0;
            return false;
        }
        if (message->nlmsg_type == NLMSG_ERROR) {
            errno = -static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(message))->error;
            fail("dump");
        }
        handle(message);
    }
    return true;
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
    const Attributes<IFLA_LINKINFO + 1> attributes(message, sizeof(ifinfomsg));
    Link link;
    if (attributes.at[IFLA_IFNAME]) link.name = mnl_attr_get_str(attributes.at[IFLA_IFNAME]);
    link.master = attributes.u32(IFLA_MASTER);
    link.address = attributes.mac(IFLA_ADDRESS);
    link.isVxlan = isVxlan(attributes.at[IFLA_LINKINFO]);
    model_.linkIs(index, link);
    if (message->nlmsg_seq == 0) onLinks_();  // a notification; after a dump they are told of together
}

void NetlinkFdb::handleNeighbour(const nlmsghdr* message) {
    if (mnl_nlmsg_get_payload_len(message) < sizeof(ndmsg)) return;
    const auto* neighbour = static_cast<const ndmsg*>(mnl_nlmsg_get_payload(message));
    if (neighbour->ndm_family != AF_BRIDGE) return;
    const Attributes<ndaFlagsExt + 1> attributes(message, sizeof(ndmsg));
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
    entry.dst = addressIn(attributes.at[NDA_DST]);
    message->nlmsg_type == RTM_NEWNEIGH ? model_.entryIs(entry) : model_.entryDel(entry);
}

}  // namespace Fdb
