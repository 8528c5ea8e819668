#include "plugins/kernel-fdb/FdbDevice.h"

#include <linux/if_bridge.h>
#include <linux/if_link.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>

#include "Quil/Trace.h"

namespace KernelFdb {
namespace {

using Bridging::MacVlanPair;
using Lanx::IpGenAddr;
using Quil::cat;

constexpr std::uint8_t bothHalves = NTF_SELF | NTF_MASTER;

Quil::Trace& trace() {
    static Quil::Trace& handle = Quil::Trace::handler("kernel-fdb");
    return handle;
}

void putAddress(nlmsghdr* message, std::uint16_t type, const IpGenAddr& address) {
    mnl_attr_put(message, type, address.af() == Lanx::ipv4 ? 4 : 16, address.bytes().data());
}

}  // namespace

FdbDevice::FdbDevice(Quil::String name, std::uint16_t vlan, Quil::String notes)
    : name_(std::move(name)), vlan_(vlan), notesPath_(std::move(notes)), socket_(Netlink::open(0)) {
    readNotes();
    readLink();
}

// One line for each entry: "+ key" before it is made, "- key" when it is gone.
void FdbDevice::readNotes() {
    std::ifstream in(notesPath_);
    std::string sign, key;
    while (in >> sign >> key) {
        try {
            sign == "+" ? void(noted_.insert(MacVlanPair(key))) : void(noted_.erase(MacVlanPair(key)));
        } catch (const Quil::RangeException&) {  // a line cut short by a full file system
        }
    }
    in.close();
    for (const MacVlanPair& made : noted_) made_[made] = IpGenAddr();
    // Written anew, without what is over.
    const Quil::String fresh = notesPath_ + ".new";
    notes_.open(fresh, std::ios::trunc);
    for (const MacVlanPair& made : noted_) notes_ << "+ " << made.str() << "\n";
    notes_.flush();
    std::error_code error;
    if (notes_) std::filesystem::rename(fresh, notesPath_, error);
    if (!notes_ || error) throw Quil::SystemException(cat("kernel-fdb: ", notesPath_, " cannot be written"));
}

void FdbDevice::note(char sign, const MacVlanPair& key) {
    const bool isNew = sign == '+' ? noted_.insert(key).second : noted_.erase(key) > 0;
    if (isNew && !(notes_ << sign << " " << key.str() << std::endl)) {
        throw Quil::SystemException(cat("kernel-fdb: ", notesPath_, " cannot be written"));
    }
}

void FdbDevice::readLink() {
    link_ = {};
    std::uint32_t master = 0;
    std::set<std::uint32_t> vlanAware;
    Netlink::dump(RTM_GETLINK, AF_UNSPEC, [&](const nlmsghdr* message) {
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
        link_.index = index;
        link_.local =
            Netlink::addressIn(vxlan.at[IFLA_VXLAN_LOCAL] ? vxlan.at[IFLA_VXLAN_LOCAL] : vxlan.at[IFLA_VXLAN_LOCAL6]);
        master = attributes.u32(IFLA_MASTER);
    });
    link_.isVlanAware = vlanAware.contains(master);
}

int FdbDevice::request(std::uint16_t type, std::uint16_t flags, std::uint8_t halves, const MacVlanPair& key,
                       const IpGenAddr* vtep, const Netlink::Visit& answer) {
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
    if (vtep) putAddress(message, NDA_DST, *vtep);
    if (link_.isVlanAware && (halves & NTF_MASTER)) mnl_attr_put_u16(message, NDA_VLAN, key.vlanId().value());
    return Netlink::request(socket_.get(), message, answer);
}

void FdbDevice::fail(const char* what, const MacVlanPair& key, int error) {
    ++errors_;
    hasFailed_ = true;
    trace().log(3, [&] { return cat(name_, ": ", what, " ", key, ": ", std::strerror(error)); });
}

// Whether the device has an entry of this MAC that this process did not make.
bool FdbDevice::isForeign(const MacVlanPair& key) {
    if (noted_.contains(key)) return false;
    return request(RTM_GETNEIGH, 0, NTF_SELF, key, nullptr) == 0;
}

void FdbDevice::hostIs(const MacVlanPair& key, const IpGenAddr& vtep) {
    if (link_.local == vtep) return hostDel(key);  // it is behind this switch itself
    wanted_[key] = vtep;
    const auto made = made_.find(key);
    if (made == made_.end() || made->second != vtep) program(key, vtep);
}

void FdbDevice::hostDel(const MacVlanPair& key) {
    if (wanted_.erase(key)) remove(key);
}

void FdbDevice::program(const MacVlanPair& key, const IpGenAddr& vtep) {
    if (link_.index == 0) return fail("no VXLAN device for", key, ENODEV);
    if (isForeign(key)) {
        ++foreign_;
        trace().log(5, [&] { return cat(name_, ": ", key, " has an entry of someone else's: left alone"); });
        return;
    }
    note('+', key);
    const int error = request(RTM_NEWNEIGH, NLM_F_CREATE | NLM_F_REPLACE, bothHalves | NTF_EXT_LEARNED, key, &vtep);
    if (error) return fail("cannot program", key, error);
    made_[key] = vtep;
    ++programmed_;
}

void FdbDevice::remove(const MacVlanPair& key) {
    const auto made = made_.find(key);
    if (made == made_.end()) return;
    const IpGenAddr* vtep = made->second == IpGenAddr() ? nullptr : &made->second;
    int error = request(RTM_DELNEIGH, 0, bothHalves, key, vtep);
    // The bridge's half comes first; when that has moved to another port, the device's own is still there.
    if (error == ENOENT) error = request(RTM_DELNEIGH, 0, NTF_SELF, key, vtep);
    if (error && error != ENOENT) return fail("cannot remove", key, error);
    made_.erase(made);
    note('-', key);
    ++removed_;
}

// By MAC: a device has one entry of each.
std::map<Lanx::EthAddr, FdbDevice::Found> FdbDevice::readEntries() const {
    std::map<Lanx::EthAddr, Found> entries;
    Netlink::dump(RTM_GETNEIGH, AF_BRIDGE, [&](const nlmsghdr* message) {
        const auto* neighbour = static_cast<const ndmsg*>(mnl_nlmsg_get_payload(message));
        if (static_cast<std::uint32_t>(neighbour->ndm_ifindex) != link_.index) return;
        const Netlink::Attributes<NDA_MASTER + 1> attributes(message, sizeof(ndmsg));
        Found& found = entries[attributes.mac(NDA_LLADDR)];
        attributes.at[NDA_MASTER] ? found.hasBridgeHalf = true
                                  : bool(found.vtep = Netlink::addressIn(attributes.at[NDA_DST]));
    });
    return entries;
}

void FdbDevice::mend(bool sweep) {
    hasFailed_ = false;
    readLink();
    if (link_.index == 0) {
        made_.clear();  // with the device its entries have gone
        if (!wanted_.empty()) fail("no VXLAN device for", wanted_.begin()->first, ENODEV);
        return;
    }
    const auto entries = readEntries();
    for (const auto& [key, vtep] : Entries(wanted_)) {
        const auto found = entries.find(key.ethAddr());
        if (found != entries.end() && found->second.vtep == vtep && found->second.hasBridgeHalf) {
            if (noted_.contains(key)) made_[key] = vtep;
            continue;
        }
        if (const auto made = made_.find(key); made != made_.end() && made->second == vtep) ++mended_;
        program(key, vtep);
    }
    if (!sweep) return;
    for (const auto& [key, vtep] : Entries(made_)) {
        if (!wanted_.contains(key)) remove(key);
    }
    for (const MacVlanPair& key : std::set(noted_)) {
        if (!wanted_.contains(key) && !made_.contains(key)) note('-', key);
    }
}

}  // namespace KernelFdb
