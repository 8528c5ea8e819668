#include "producer/SourceSet.h"

#include <algorithm>

#include "common/Names.h"

namespace Producer {
namespace {

L2Rib::Dest destOf(const Lanx::IpGenAddr& vtep, Fdb::NextHopId id = 0) {
    return {L2Rib::DestId(id), L2Rib::DestDataVxlan(vtep)};
}

const Lanx::EthAddr unknownTraffic;  // the zero address stands for all that has no entry of its own

}  // namespace

SourceSet::SourceSet(Corestore::EntityManager& em, Quil::Name name, std::uint32_t maxHosts)
    : em_(em), name_(std::move(name)), maxHosts_(maxHosts) {
    AnnouncedSource::checkName(name_);
    for (const auto& row : fwkEnum(L2Rib::Source()).rows) {
        if (AnnouncedSource::isLeftBehind(em.root(), nameOf(row.value))) sourceOf(row.value);
    }
}

Quil::Name SourceSet::nameOf(L2Rib::Source source) const { return Quil::cat(name_, "-", Apps::sourceName(source)); }

AnnouncedSource& SourceSet::sourceOf(L2Rib::Source source) {
    const auto [at, isNew] = sources_.try_emplace(source, em_, nameOf(source), source, maxHosts_);
    if (isNew && !isFilling_) at->second.fillEnds();
    return at->second;
}

void SourceSet::hostIs(L2Rib::Source source, const L2Rib::Host& host) { sourceOf(source).hostIs(host); }

void SourceSet::hostDel(L2Rib::Source source, const Bridging::MacVlanPair& key) { sourceOf(source).hosts().del(key); }

void SourceSet::floodIs(L2Rib::Source source, Bridging::VlanId vlanId, const Lanx::IpGenAddr& vtep) {
    const auto set = sourceOf(source).entry()->vlanFloodSetIs(vlanId)->floodSetIs(unknownTraffic);
    set->floodSetTypeIs(L2Rib::floodSetTypeAll);
    set->destSetIs(destOf(vtep), true);
}

void SourceSet::floodDel(L2Rib::Source source, Bridging::VlanId vlanId, const Lanx::IpGenAddr& vtep) {
    const auto& entry = sourceOf(source).entry();
    const auto vlan = entry->vlanFloodSet(vlanId);
    const auto set = vlan ? vlan->floodSet(unknownTraffic) : nullptr;
    if (!set) return;
    set->destSetDel(destOf(vtep));
    if (set->destSet().empty()) entry->vlanFloodSetDel(vlanId);
}

// Members before the group, and the group before those that have left it.
void SourceSet::groupIs(L2Rib::Source source, Fdb::NextHopId group, const Fdb::GroupMembers& members) {
    AnnouncedSource& announced = sourceOf(source);
    L2Rib::LoadBalance row{L2Rib::LoadBalanceId(group)};
    std::uint8_t place = 0;
    for (const auto& [id, vtep] : members) {
        announced.dests().put(destOf(vtep, id));
        row.nextIs(L2Rib::EcmpIndex(place++), {L2Rib::ObjId(id), L2Rib::tableTypeDest});
    }
    announced.loadBalances().put(row);
    const Fdb::GroupMembers before = std::exchange(groups_[source][group], members);
    delUnused(source, before);
}

void SourceSet::groupDel(L2Rib::Source source, Fdb::NextHopId group) {
    sourceOf(source).loadBalances().del(L2Rib::LoadBalanceId(group));
    const Fdb::GroupMembers before = groups_[source][group];
    groups_[source].erase(group);
    delUnused(source, before);
}

bool SourceSet::isMember(const Groups& groups, Fdb::NextHopId id) {
    return std::any_of(groups.begin(), groups.end(), [&](const auto& group) {
        return std::any_of(group.second.begin(), group.second.end(),
                           [&](const auto& member) { return member.first == id; });
    });
}

void SourceSet::delUnused(L2Rib::Source source, const Fdb::GroupMembers& members) {
    for (const auto& [id, vtep] : members) {
        if (!isMember(groups_[source], id)) sourceOf(source).dests().del(L2Rib::DestId(id));
    }
}

void SourceSet::fillEnds() {
    isFilling_ = false;
    for (auto& [source, announced] : sources_) announced.fillEnds();
}

void SourceSet::withdraw() {
    for (auto& [source, announced] : sources_) announced.withdraw();
}

}  // namespace Producer
