#include "L2Rib/FloodSet.h"

namespace L2Rib {

FloodSet::FloodSet(const Lanx::EthAddr& macAddr) : Entity(macAddr.str()), macAddr_(macAddr) {}
FloodSet::~FloodSet() = default;

bool FloodSet::destSet(const Dest& dest) const {
    const auto found = destSet_.find(dest);
    return found != destSet_.end() && found->second;
}

void FloodSet::destSetIs(const Dest& dest, bool flag) {
    const auto [at, isNew] = destSet_.try_emplace(dest, flag);
    if (!isNew && at->second == flag) return;
    at->second = flag;
    notifiees_.forEach([&](NotifieeConst& n) { n.onDestSet(dest); });
    fwkChanged();
}

bool FloodSet::destSetDel(const Dest& dest) {
    const auto node = destSet_.extract(dest);
    if (node.empty()) return false;
    notifiees_.forEach([&](NotifieeConst& n) { n.onDestSet(node.key()); });
    fwkChanged();
    return true;
}

void FloodSet::destSetDelAll() {
    while (!destSet_.empty()) destSetDel(destSet_.begin()->first);
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
