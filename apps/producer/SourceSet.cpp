#include "producer/SourceSet.h"

#include "common/Names.h"

namespace Producer {
namespace {

L2Rib::Dest destOf(const Lanx::IpGenAddr& vtep) { return {L2Rib::DestId(), L2Rib::DestDataVxlan(vtep)}; }

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

void SourceSet::fillEnds() {
    isFilling_ = false;
    for (auto& [source, announced] : sources_) announced.fillEnds();
}

void SourceSet::withdraw() {
    for (auto& [source, announced] : sources_) announced.withdraw();
}

}  // namespace Producer
