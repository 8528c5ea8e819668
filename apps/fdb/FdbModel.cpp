#include "fdb/FdbModel.h"

#include <linux/neighbour.h>

#include <algorithm>
#include <exception>

#include "L2Rib/Constants.h"

namespace Fdb {

using Bridging::MacVlanPair;
using L2Rib::CiDest;

// linux/neighbour.h of Debian 12 knows these from Linux 6.0 on.
constexpr std::uint32_t extLocked = 1u << 1;  // NTF_EXT_LOCKED
constexpr std::uint16_t dynamicStates = NUD_REACHABLE | NUD_STALE;

bool Entry::isSelf() const { return (flags & NTF_SELF) != 0; }

bool Model::Place::operator<(const Place& other) const {
    return std::tie(isSelf, home, vlanOrVni, floodDst) <
           std::tie(other.isSelf, other.home, other.vlanOrVni, other.floodDst);
}

Model::Place Model::placeOf(const Entry& entry) {
    if (!entry.isSelf()) return {false, entry.bridge, entry.vlan, {}};
    return {true, entry.device, entry.srcVni, entry.mac.isZero() ? entry.dst : std::nullopt};
}

const Link& Model::link(std::uint32_t index) const {
    static const Link unknown;
    const auto found = links_.find(index);
    return found == links_.end() ? unknown : found->second;
}

void Model::linkIs(std::uint32_t index, const Link& link) {
    const Link before = this->link(index);
    links_[index] = link;
    linkDump_[index] = dump_;
    if (before.isVxlan != link.isVxlan || before.master != link.master || !(before.address == link.address) ||
        before.name != link.name) {
        evaluateAll();
    }
}

void Model::linkDel(std::uint32_t index) {
    links_.erase(index);
    linkDump_.erase(index);
    for (auto& [mac, all] : macs_) {
        std::erase_if(all.entries, [&](const auto& item) {
            const Entry& entry = item.second.entry;
            const bool handedOver = !entry.isSelf() && (entry.state & NUD_PERMANENT) && entry.bridge != index;
            return (entry.device == index && !handedOver) || entry.bridge == index;
        });
    }
    evaluateAll();
}

void Model::entryIs(const Entry& entry) {
    if (entry.mac.isMulticast()) return;
    macs_[entry.mac].entries[placeOf(entry)] = {entry, dump_};
    evaluate(entry.mac);
}

void Model::entryDel(const Entry& entry) {
    const auto mac = macs_.find(entry.mac);
    if (mac == macs_.end()) return;
    // By its place alone: a permanent entry may have been handed to another device without a word.
    if (mac->second.entries.erase(placeOf(entry)) > 0) evaluate(entry.mac);
}

void Model::nextHopIs(NextHopId id, const NextHop& nextHop) {
    const bool wasGroup = nextHops_.isGroup(id);
    nextHops_.nextHopIs(id, nextHop);
    if (wasGroup != nextHop.isGroup) evaluateUsersOf(id);
}

void Model::nextHopDel(NextHopId id) {
    const bool wasGroup = nextHops_.isGroup(id);
    nextHops_.nextHopDel(id);
    if (wasGroup) forgetEntriesOf(id);
}

void Model::forgetEntriesOf(NextHopId group) {
    std::vector<Lanx::EthAddr> users;
    for (auto& [mac, all] : macs_) {
        const auto leadsThere = [&](const auto& item) { return item.second.entry.nextHopGroup == group; };
        if (std::erase_if(all.entries, leadsThere) > 0) users.push_back(mac);
    }
    evaluate(users);
}

void Model::evaluateUsersOf(NextHopId group) {
    std::vector<Lanx::EthAddr> users;
    for (const auto& [mac, all] : macs_) {
        const bool uses = std::any_of(all.entries.begin(), all.entries.end(),
                                      [&](const auto& item) { return item.second.entry.nextHopGroup == group; });
        if (uses) users.push_back(mac);
    }
    evaluate(users);
}

void Model::dumpBegins() {
    ++dump_;
    nextHops_.dumpBegins();
}

void Model::dumpEnds() {
    for (const NextHopId group : nextHops_.dumpEnds()) forgetEntriesOf(group);
    std::erase_if(links_, [&](const auto& item) { return linkDump_[item.first] != dump_; });
    std::erase_if(linkDump_, [&](const auto& item) { return item.second != dump_; });
    for (auto& [mac, all] : macs_) {
        std::erase_if(all.entries, [&](const auto& item) { return item.second.dump != dump_; });
    }
    evaluateAll();
}

std::uint16_t Model::vlanOf(std::uint32_t bridge, std::uint16_t given) const {
    if (given != 0) return given;
    const auto configured = settings_.vlanOfBridge.find(link(bridge).name);
    return configured == settings_.vlanOfBridge.end() ? std::uint16_t(1) : configured->second;
}

bool Model::isOwnAddress(const Entry& entry) const {
    const Link& device = link(entry.device);
    return (!device.address.isZero() && device.address == entry.mac) || settings_.ownAddresses.contains(entry.mac);
}

void Model::addHost(Found& found, L2Rib::Source source, Bridging::EntryType type, const Entry& entry,
                    std::uint16_t vlan, const CiDest& dest, NextHopId group) const {
    if (vlan < Bridging::VlanId::min || vlan > Bridging::VlanId::max) return;
    L2Rib::Host host(MacVlanPair(entry.mac, Bridging::VlanId(vlan)));
    host.entryTypeIs(type);
    host.ciDestIs(dest);
    if (group != 0) host.nextIs({L2Rib::ObjId(group), L2Rib::tableTypeLoadBalance});
    const bool isStatic = type != Bridging::entryTypeDynamic && type != Bridging::entryTypeRemote;
    if (isStatic) host.seqNoIs(Keel::Seqno32(L2Rib::Constants::seqNoForStaticMacs));
    // Two bridges may have the same MAC in the same VLAN; the one told first in the order of places stands.
    found.hosts.emplace(HostId(source, host.key()), host);
}

namespace {

CiDest interfaceDest(std::uint32_t index) {
    CiDest dest(L2Rib::destTypeIntf);
    dest.intfIs(Lanx::IntfId(Lanx::IntfId::ethernet, index));
    return dest;
}

CiDest vtepDest(const Lanx::IpGenAddr& address) {
    CiDest dest(L2Rib::destTypeVxlan);
    dest.vtepAddrIs(L2Rib::CiVtepIndex(0), address);
    return dest;
}

}  // namespace

// Whether the entry is the bridge's half of a remote MAC, whose VXLAN half is the host.
bool Model::isHalfOfRemote(const Entry& entry, const PerMac& all) const {
    if (!link(entry.device).isVxlan) return false;
    if (!(entry.state & NUD_PERMANENT)) return true;
    return std::any_of(all.entries.begin(), all.entries.end(), [&](const auto& item) {
        return item.first.isSelf && item.second.entry.device == entry.device &&
               (item.second.entry.dst || item.second.entry.nextHopGroup != 0);
    });
}

void Model::addBridgeEntry(const Entry& entry, const PerMac& all, Found& found) const {
    const std::uint16_t vlan = vlanOf(entry.bridge, entry.vlan);
    const bool own = isOwnAddress(entry);
    if (isHalfOfRemote(entry, all) && !(own && (entry.state & NUD_PERMANENT))) return;
    if (entry.state & NUD_PERMANENT) {
        addHost(found, own ? L2Rib::sourceRouterMac : L2Rib::sourceLocalStatic,
                own ? Bridging::entryTypeRouter : Bridging::entryTypeStatic, entry, vlan, CiDest(L2Rib::destTypeCpu));
    } else if (entry.state & NUD_NOARP) {
        addHost(found, L2Rib::sourceLocalStatic, Bridging::entryTypeStatic, entry, vlan, interfaceDest(entry.device));
    } else if (entry.state & dynamicStates) {
        addHost(found, L2Rib::sourceLocalDynamic, Bridging::entryTypeDynamic, entry, vlan, interfaceDest(entry.device));
    }
}

// The VLANs in which the VXLAN entry stands; none when its host has moved to another port of the bridge.
std::vector<std::uint16_t> Model::vlansOfRemote(const Entry& entry, const PerMac& all) const {
    const std::uint32_t bridge = link(entry.device).master;
    const std::uint16_t vlan = vlanOf(bridge, entry.vlan);
    std::vector<std::uint16_t> here;
    bool elsewhere = false;
    for (const auto& [place, known] : all.entries) {
        if (place.isSelf || place.home != bridge || bridge == 0 || (known.entry.flagsExt & extLocked)) continue;
        const std::uint16_t halfVlan = vlanOf(bridge, known.entry.vlan);
        if (entry.vlan != 0 && halfVlan != vlan) continue;
        if (known.entry.device == entry.device) {
            here.push_back(halfVlan);  // without a VLAN of its own, the entry has that of its bridge half
        } else if (halfVlan == vlan) {
            elsewhere = true;
        }
    }
    if (here.empty() && !elsewhere) here.push_back(vlan);
    return here;
}

namespace {

// Who says a VXLAN entry, and of which type its host is.
std::optional<std::pair<L2Rib::Source, Bridging::EntryType>> originOf(const Entry& entry) {
    if (entry.flags & NTF_EXT_LEARNED) return {{L2Rib::sourceBgp, Bridging::entryTypeRemote}};
    if ((entry.flags & NTF_STICKY) && (entry.state & NUD_NOARP)) {
        return {{L2Rib::sourceBgp, Bridging::entryTypeRemoteStatic}};
    }
    if (entry.state & (NUD_PERMANENT | NUD_NOARP)) return {{L2Rib::sourceVxlanStatic, Bridging::entryTypeRemoteStatic}};
    if ((entry.state & dynamicStates) && !(entry.flags & ~(NTF_SELF | NTF_MASTER))) {
        return {{L2Rib::sourceLocalDynamic, Bridging::entryTypeRemote}};
    }
    return std::nullopt;
}

}  // namespace

void Model::addFlood(const Entry& entry, Found& found) const {
    const auto origin = originOf(entry);
    const std::uint16_t vlan = vlanOf(link(entry.device).master, entry.vlan);
    const bool isVlan = vlan >= Bridging::VlanId::min && vlan <= Bridging::VlanId::max;
    if (!origin || !isVlan || !entry.dst || entry.dst->af() != Lanx::ipv4) {
        ++found.share.floodEntries;
        return;
    }
    found.floods.emplace(origin->first, Bridging::VlanId(vlan), *entry.dst);
}

void Model::addVxlanEntry(const Entry& entry, const PerMac& all, Found& found) const {
    if (!link(entry.device).isVxlan) return;
    if ((entry.flags & NTF_EXT_LEARNED) && settings_.programmedDevices.contains(link(entry.device).name)) return;
    if (entry.mac.isZero()) return addFlood(entry, found);
    const bool hasGroup = entry.nextHopGroup != 0;
    if (hasGroup && !nextHops_.isGroup(entry.nextHopGroup)) {
        ++found.share.nextHopGroupEntries;
        return;
    }
    const auto origin = originOf(entry);
    if ((!entry.dst && !hasGroup) || !origin) return;
    const auto vlans = vlansOfRemote(entry, all);
    if (vlans.empty()) ++found.share.staleRemotes;
    for (const std::uint16_t vlan : vlans) {
        addHost(found, origin->first, origin->second, entry, vlan, hasGroup ? CiDest() : vtepDest(*entry.dst),
                entry.nextHopGroup);
    }
}

void Model::evaluate(const Lanx::EthAddr& mac) {
    PerMac& all = macs_[mac];
    Found found;
    for (const auto& [place, known] : all.entries) {
        if (known.entry.flagsExt & extLocked) continue;
        place.isSelf ? addVxlanEntry(known.entry, all, found) : addBridgeEntry(known.entry, all, found);
    }
    statistics_.floodEntries += found.share.floodEntries - all.share.floodEntries;
    statistics_.nextHopGroupEntries += found.share.nextHopGroupEntries - all.share.nextHopGroupEntries;
    statistics_.staleRemotes += found.share.staleRemotes - all.share.staleRemotes;
    all.share = found.share;
    publishHosts(all, found);
    publishFloods(all, found);
    if (all.entries.empty()) macs_.erase(mac);
}

// What the sink throws leaves what it has not taken to be published next time.
void Model::publishHosts(PerMac& all, Found& found) {
    auto& published = all.published;
    const auto groupOf = [](const L2Rib::Host& host) { return static_cast<NextHopId>(host.next().objId().value()); };
    for (auto& [id, host] : found.hosts) {
        const auto old = published.find(id);
        const bool known = old != published.end();
        const bool isSamePlace = known && old->second.next() == host.next() &&
                                 Quil::valueToStrep(old->second.ciDest()) == Quil::valueToStrep(host.ciDest());
        // When the host was first seen there.
        host.lastMoveTimeIs(isSamePlace ? old->second.lastMoveTime() : clock_->now());
        if (isSamePlace && old->second.entryType() == host.entryType()) continue;
        // A group stands before its hosts, and as long as they do.
        const NextHopId before = known ? groupOf(old->second) : 0, now = groupOf(host);
        if (now != before && now != 0) nextHops_.use(id.first, now);
        try {
            sink_.hostIs(id.first, host);
        } catch (...) {
            if (now != before && now != 0) nextHops_.release(id.first, now);
            throw;
        }
        published.insert_or_assign(id, host);
        if (now != before && before != 0) nextHops_.release(id.first, before);
    }
    // What is new stands before what is old goes: a host that changes its source is never without one.
    for (auto at = published.begin(); at != published.end();) {
        const bool isGone = !found.hosts.contains(at->first);
        if (!isGone) {
            ++at;
            continue;
        }
        const L2Rib::Source source = at->first.first;
        const NextHopId group = groupOf(at->second);
        sink_.hostDel(source, at->first.second);
        at = published.erase(at);
        if (group != 0) nextHops_.release(source, group);
    }
}

void Model::publishFloods(PerMac& all, const Found& found) {
    for (const auto& flood : found.floods) {
        const auto& [source, vlanId, vtep] = flood;
        if (!all.floods.contains(flood)) sink_.floodIs(source, vlanId, vtep);
        all.floods.insert(flood);
    }
    for (auto at = all.floods.begin(); at != all.floods.end();) {
        const auto& [source, vlanId, vtep] = *at;
        const bool isGone = !found.floods.contains(*at);
        if (isGone) sink_.floodDel(source, vlanId, vtep);
        at = isGone ? all.floods.erase(at) : std::next(at);
    }
}

void Model::evaluateAll() {
    std::vector<Lanx::EthAddr> all;
    for (const auto& [mac, entries] : macs_) all.push_back(mac);
    evaluate(all);
}

// What cannot be published does not keep the others from it; it is said at the end.
void Model::evaluate(const std::vector<Lanx::EthAddr>& macs) {
    std::exception_ptr first;
    for (const Lanx::EthAddr& mac : macs) {
        try {
            evaluate(mac);
        } catch (const Quil::Exception&) {
            if (!first) first = std::current_exception();
        }
    }
    if (first) std::rethrow_exception(first);
}

}  // namespace Fdb
