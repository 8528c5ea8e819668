#include "L2Rib/FloodSet.h"

namespace L2Rib {

FloodSet::FloodSet(const Lanx::EthAddr& macAddr) : Entity(macAddr.str()), macAddr_(macAddr) {}
FloodSet::~FloodSet() = default;

bool FloodSet::destSet(const Dest& dest) const {
    const auto found = destSet_.find(dest);
    return found != destSet_.end() && found->second;
}

void FloodSet::destSetIs(const Dest& dest, bool flag) {
    const auto [member, isNew] = destSet_.try_emplace(dest, flag);
    if (!isNew && std::exchange(member->second, flag) == flag) return;
    const auto keep = Quil::heldWhileCounted(this);
    const Dest changed = dest;  // the caller's may lie in what a watcher removes
    fwkChanged();
    notifiees_.forEach([&](NotifieeConst& n) { n.onDestSet(changed); });
}

bool FloodSet::destSetDel(const Dest& dest) {
    const auto node = destSet_.extract(dest);
    if (node.empty()) return false;
    fwkChanged();
    notifiees_.forEach([&](NotifieeConst& n) { n.onDestSet(node.key()); });
    return true;
}

void FloodSet::destSetDelAll() {
    std::vector<Dest> dests;  // of now: a watcher may add
    for (const auto& [dest, flag] : destSet_) dests.push_back(dest);
    for (const Dest& dest : dests) destSetDel(dest);
}

const Quil::Type& FloodSet::fwkType() const { return Quil::typeOf<FloodSet>(); }

void FloodSet::fwkDeclare(Quil::TypeBuilder<FloodSet>& type) {
    type.name("L2Rib::FloodSet")
        .creator<Lanx::EthAddr>([](const Lanx::EthAddr& macAddr) { return Quil::makePtr<FloodSet>(macAddr); })
        .attribute("macAddr", &FloodSet::macAddr)
        .attribute("floodSetType", &FloodSet::floodSetType, &FloodSet::floodSetTypeIs)
        .members(
            "destSet", [](const FloodSet& set) -> const auto& { return set.destSet(); }, &FloodSet::destSetIs,
            &FloodSet::destSetDel, &FloodSet::destSetDelAll);
}

VlanFloodSet::VlanFloodSet(const Bridging::VlanId& vlanId) : Entity(vlanId.str()), vlanId_(vlanId) {}
VlanFloodSet::~VlanFloodSet() = default;

const Quil::Type& VlanFloodSet::fwkType() const { return Quil::typeOf<VlanFloodSet>(); }

void VlanFloodSet::fwkDeclare(Quil::TypeBuilder<VlanFloodSet>& type) {
    type.name("L2Rib::VlanFloodSet")
        .creator<Bridging::VlanId>([](Bridging::VlanId vlanId) { return Quil::makePtr<VlanFloodSet>(vlanId); })
        .attribute("vlanId", &VlanFloodSet::vlanId)
        .children(
            "floodSet", [](const VlanFloodSet& set) -> const auto& { return set.floodSet(); },
            &VlanFloodSet::floodSetIs, &VlanFloodSet::floodSetDel, &VlanFloodSet::floodSetDelAll);
}

}  // namespace L2Rib
