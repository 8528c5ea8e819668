#include "plugins/kernel-fdb/FdbDevice.h"

#include <linux/if_link.h>

#include <array>
#include <cerrno>

#include "Quil/Exception.h"
#include "Quil/Trace.h"

namespace KernelFdb {
namespace {

using Bridging::MacVlanPair;
using Lanx::IpGenAddr;
using Quil::cat;

Quil::Trace& trace() {
    static Quil::Trace& handle = Quil::Trace::handler("kernel-fdb");
    return handle;
}

}  // namespace

FdbDevice::FdbDevice(Quil::String name, std::uint16_t vlan, Quil::String notes, const NextHopGroups& groups)
    : name_(std::move(name)), vlan_(vlan), notes_(std::move(notes)), socket_(Netlink::open(0)), groups_(groups) {
    guarded([this] { readLink(); });
}

void FdbDevice::fail(const Quil::String& what) {
    ++errors_;
    hasFailed_ = true;
    trace().log(3, [&] { return cat(name_, ": ", what); });
}

void FdbDevice::guarded(const std::function<void()>& run) {
    try {
        run();
    } catch (const Quil::SystemException& error) {
        fail(error.what());
    }
}

// False when the kernel's answer was cut short: then nothing is known.
bool FdbDevice::readLink() {
    Link link;
    std::set<std::uint32_t> vlanAware;
    const bool isWhole = Netlink::dump(RTM_GETLINK, AF_UNSPEC, [&](const nlmsghdr* message) {
        const Netlink::Attributes<IFLA_LINKINFO + 1> attributes(message, sizeof(ifinfomsg));
        const auto index =
            static_cast<std::uint32_t>(static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(message))->ifi_index);
        const Netlink::Attributes<IFLA_INFO_DATA + 1> info(attributes.at[IFLA_LINKINFO]);
        const auto isKind = [&](const char* kind) {
            return info.at[IFLA_INFO_KIND] && std::string_view(mnl_attr_get_str(info.at[IFLA_INFO_KIND])) == kind;
        };
        if (isKind("bridge")) {
            const Netlink::Attributes<IFLA_BR_VLAN_FILTERING + 1> bridge(info.at[IFLA_INFO_DATA]);
            if (bridge.u8(IFLA_BR_VLAN_FILTERING)) vlanAware.insert(index);
        }
        if (!attributes.at[IFLA_IFNAME] || mnl_attr_get_str(attributes.at[IFLA_IFNAME]) != name_) return;
        if (!isKind("vxlan")) return;
        const Netlink::Attributes<IFLA_VXLAN_LOCAL6 + 1> vxlan(info.at[IFLA_INFO_DATA]);
        link.index = index;
        link.master = attributes.u32(IFLA_MASTER);
        link.local =
            Netlink::addressIn(vxlan.at[IFLA_VXLAN_LOCAL] ? vxlan.at[IFLA_VXLAN_LOCAL] : vxlan.at[IFLA_VXLAN_LOCAL6]);
    });
    if (!isWhole) return false;
    link.isVlanAware = vlanAware.contains(link.master);
    link_ = link;
    return true;
}

FdbDevice::Half FdbDevice::halfIn(const nlmsghdr* message) {
    const auto* neighbour = static_cast<const ndmsg*>(mnl_nlmsg_get_payload(message));
    const Netlink::Attributes<NDA_NH_ID + 1> attributes(message, sizeof(ndmsg));
    return {true,
            static_cast<std::uint32_t>(neighbour->ndm_ifindex),
            neighbour->ndm_state,
            neighbour->ndm_flags,
            Netlink::addressIn(attributes.at[NDA_DST]),
            attributes.u32(NDA_NH_ID)};
}

bool FdbDevice::readTable(Table& table) const {
    return Netlink::dump(RTM_GETNEIGH, AF_BRIDGE, [&](const nlmsghdr* message) {
        const Netlink::Attributes<NDA_MASTER + 1> attributes(message, sizeof(ndmsg));
        const Half half = halfIn(message);
        const Lanx::EthAddr mac = attributes.mac(NDA_LLADDR);
        if (half.group != 0) table.groups.insert(half.group);
        if (attributes.at[NDA_MASTER] && attributes.u32(NDA_MASTER) == link_.master) {
            table.bridge[{mac, attributes.u16(NDA_VLAN)}] = half;
        } else if (!attributes.at[NDA_MASTER] && half.port == link_.index) {
            table.own[mac] = half;
        }
    });
}

FdbDevice::Entry FdbDevice::entryIn(const Table& table, const MacVlanPair& key) const {
    Entry entry;
    if (const auto own = table.own.find(key.ethAddr()); own != table.own.end()) entry.own = own->second;
    const auto bridge = table.bridge.find({key.ethAddr(), vlanOf(key)});
    if (bridge != table.bridge.end()) entry.bridge = bridge->second;
    return entry;
}

// False when the kernel did not answer for another reason than that there is none.
bool FdbDevice::readHalf(const MacVlanPair& key, std::uint8_t which, Half& half) {
    const int error =
        request(RTM_GETNEIGH, 0, which, key, {}, [&](const nlmsghdr* message) { half = halfIn(message); });
    if (error && error != ENOENT) fail(cat("cannot read ", key, ": ", std::strerror(error)));
    return error == 0 || error == ENOENT;
}

bool FdbDevice::readEntry(const MacVlanPair& key, Entry& entry) {
    return readHalf(key, NTF_SELF, entry.own) && (link_.master == 0 || readHalf(key, NTF_MASTER, entry.bridge));
}

int FdbDevice::request(std::uint16_t type, std::uint16_t flags, std::uint8_t halves, const MacVlanPair& key,
                       const Target& target, const Netlink::Visit& answer) {
    std::array<char, 512> buffer{};
    nlmsghdr* message = mnl_nlmsg_put_header(buffer.data());
    message->nlmsg_type = type;
    message->nlmsg_flags = flags;
    auto* neighbour = static_cast<ndmsg*>(mnl_nlmsg_put_extra_header(message, sizeof(ndmsg)));
    neighbour->ndm_family = AF_BRIDGE;
    neighbour->ndm_ifindex = static_cast<int>(link_.index);
    neighbour->ndm_state = type == RTM_NEWNEIGH ? NUD_REACHABLE : NUD_NONE;
    neighbour->ndm_flags = halves;
    const auto mac = key.ethAddr().bytes();
    mnl_attr_put(message, NDA_LLADDR, mac.size(), mac.data());
    const IpGenAddr& vtep = target.vtep;
    if (!(vtep == IpGenAddr())) mnl_attr_put(message, NDA_DST, vtep.af() == Lanx::ipv4 ? 4 : 16, vtep.bytes().data());
    if (target.group != 0) mnl_attr_put_u32(message, NDA_NH_ID, target.group);
    if (vlanOf(key) && (halves & NTF_MASTER)) mnl_attr_put_u16(message, NDA_VLAN, vlanOf(key));
    return Netlink::request(socket_.get(), message, answer);
}

void FdbDevice::hostIs(const MacVlanPair& key, const Target& target) {
    wanted_[key] = target;
    settle(key);
}

void FdbDevice::hostDel(const MacVlanPair& key) {
    if (wanted_.erase(key)) settle(key);
}

std::optional<Target> FdbDevice::target(const MacVlanPair& key) const {
    const auto wanted = wanted_.find(key);
    if (wanted == wanted_.end()) return std::nullopt;
    if (wanted->second.group == 0 && wanted->second.vtep == link_.local) return std::nullopt;
    return wanted->second;
}

// The device has one entry of a MAC; it may have been noted for another VLAN.
bool FdbDevice::isOurs(const Half& own, const MacVlanPair& key) const {
    if (!(own.flags & NTF_EXT_LEARNED)) return false;
    const MacVlanPair first(key.ethAddr(), Bridging::VlanId());
    for (auto at = notes_.entries().lower_bound(first);
         at != notes_.entries().end() && at->first.ethAddr() == key.ethAddr(); ++at) {
        // An entry behind a group is noted without a VTEP.
        const bool isNoted = at->second.contains(own.vtep.value_or(IpGenAddr()));
        if (isNoted && (own.group != 0) == groups_.isOfOurKind(own.group)) return true;
    }
    return false;
}

bool FdbDevice::isRight(const MacVlanPair& key, const Entry& entry) const {
    const auto wanted = target(key);
    if (!wanted) return !notes_.entries().contains(key);
    return entry.own.leadsTo(*wanted) && isOurs(entry.own, key) && (link_.master == 0 || leadsHere(entry.bridge));
}

// Whether the device's entry serves another VLAN's host as well.
bool FdbDevice::isSharedMac(const MacVlanPair& key) const {
    const MacVlanPair first(key.ethAddr(), Bridging::VlanId());
    for (auto at = wanted_.lower_bound(first); at != wanted_.end() && at->first.ethAddr() == key.ethAddr(); ++at) {
        if (!(at->first == key) && target(at->first)) return true;
    }
    return false;
}

void FdbDevice::settle(const MacVlanPair& key) {
    guarded([&] {
        const auto wanted = target(key);
        if (link_.index == 0) {
            if (wanted) fail("no such VXLAN device");
            return;
        }
        Entry entry;
        if (!readEntry(key, entry) || isRight(key, entry)) return;
        wanted ? make(key, *wanted, entry) : unmake(key, entry);
    });
}

// A VTEP and a group cannot replace each other, nor can either replace what the kernel has of an entry in part.
int FdbDevice::makeRoom(const MacVlanPair& key, const Target& target, const Half& own) {
    const bool isOfOtherKind = own.isThere && (own.group != 0) != (target.group != 0);
    if (!isOfOtherKind) return 0;
    const int error = request(RTM_DELNEIGH, 0, NTF_SELF, key);
    return error == ENOENT ? 0 : error;
}

void FdbDevice::make(const MacVlanPair& key, const Target& target, const Entry& entry) {
    const bool isFixed = entry.bridge.isThere && (entry.bridge.state & (NUD_PERMANENT | NUD_NOARP)) != 0;
    if (isFixed || (entry.own.isThere && !isOurs(entry.own, key))) {
        ++foreign_;
        trace().log(5, [&] { return cat(name_, ": ", key, " has an entry of someone else's: left alone"); });
        return;
    }
    const bool isMending = notes_.holds(key, target.vtep);
    notes_.willBe(key, target.vtep);
    const std::uint8_t halves = link_.master ? NTF_SELF | NTF_MASTER : NTF_SELF;
    int error = makeRoom(key, target, entry.own);
    if (!error) error = request(RTM_NEWNEIGH, NLM_F_CREATE | NLM_F_REPLACE, halves | NTF_EXT_LEARNED, key, target);
    if (!error) {
        notes_.is(key, target.vtep);
        return void(isMending ? ++mended_ : ++made_);
    }
    fail(cat("cannot make ", key, ": ", std::strerror(error)));
    // The bridge's half is made first, and alone it would lead nowhere.
    Half own;
    if (link_.master && !leadsHere(entry.bridge) && readHalf(key, NTF_SELF, own) && !own.isThere) {
        request(RTM_DELNEIGH, 0, NTF_MASTER, key);
    }
}

void FdbDevice::unmake(const MacVlanPair& key, const Entry& entry) {
    int error = 0;
    if (leadsHere(entry.bridge) && (entry.bridge.flags & NTF_EXT_LEARNED)) {
        error = request(RTM_DELNEIGH, 0, NTF_MASTER, key);
    }
    if ((!error || error == ENOENT) && entry.own.isThere && isOurs(entry.own, key) && !isSharedMac(key)) {
        error = request(RTM_DELNEIGH, 0, NTF_SELF, key, {entry.own.vtep.value_or(IpGenAddr()), 0});
    }
    if (error && error != ENOENT) return fail(cat("cannot remove ", key, ": ", std::strerror(error)));
    notes_.gone(key);
    ++removed_;
}

void FdbDevice::look(const std::function<bool(const MacVlanPair&)>& mayGo) {
    hasFailed_ = false;
    differing_.clear();
    guarded([&] {
        Table table;
        if (!readLink() || (link_.index != 0 && !readTable(table))) return fail("the kernel's answer was cut short");
        if (link_.index == 0) {
            if (!wanted_.empty()) fail("no such VXLAN device");
            return;
        }
        groupsInUse_ = std::move(table.groups);
        for (const auto& [key, unused] : wanted_) {
            if (!isRight(key, entryIn(table, key))) differing_.push_back(key);
        }
        for (const auto& [key, vtep] : notes_.entries()) {
            if (!wanted_.contains(key) && mayGo(key)) differing_.push_back(key);
        }
    });
}

bool FdbDevice::work() {
    for (int i = 0; i < entriesPerTurn && !differing_.empty(); ++i) {
        const MacVlanPair key = differing_.front();
        differing_.pop_front();
        settle(key);
    }
    return !differing_.empty();
}

}  // namespace KernelFdb
