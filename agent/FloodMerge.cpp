#include "agent/FloodMerge.h"

#include <utility>
#include <vector>

namespace Agent {

using Bridging::VlanId;

namespace {

const Quil::Name before;  // what was taken over, among the sources: none is called so

}  // namespace

void FloodMerge::Set::add(const Set& other) {
    isAll = isAll || other.isAll;
    for (const auto& [dest, flag] : other.dests) dests[dest] = dests[dest] || flag;
}

FloodMerge::FloodMerge(const Quil::Ptr<const Quil::Clock>& clock, Quil::Ptr<L2Rib::FloodSetOutput> output,
                       std::function<void()> onChange)
    : NotifieeConst(clock), output_(std::move(output)), onChange_(std::move(onChange)) {}

FloodMerge::~FloodMerge() = default;

void FloodMerge::takeOver() {
    auto& source = sources_[before] = std::make_unique<Source>(*this);
    source->isWhole = false;
    source->takenOver = output_->source();
    for (const auto& [vlanId, vlan] : output_->vlanFloodSet()) source->saidIs(vlanId, setsOf(*vlan));
    source->markAll();
}

void FloodMerge::takenOverDel() { sourceDel(before); }

void FloodMerge::sourceIs(const Quil::Ptr<L2Rib::SourceDirEntry>& entry) {
    sourceDel(entry->name());
    auto& source = sources_[entry->name()] = std::make_unique<Source>(*this);
    source->notifierIs(entry);
    for (const auto& [vlanId, sets] : entry->vlanFloodSet()) source->onVlanFloodSet(vlanId);
    kick();
}

void FloodMerge::sourceDel(const Quil::Name& name) {
    const auto node = sources_.extract(name);
    if (!node.empty()) node.mapped()->markAll();
    kick();
}

void FloodMerge::isWholeIs(const Quil::Name& name, bool isWhole) {
    const auto source = sources_.find(name);
    if (source == sources_.end() || source->second->isWhole == isWhole) return;
    source->second->isWhole = isWhole;
    source->second->markAll();
}

void FloodMerge::enabledIs(bool enabled) {
    enabled_ = enabled;
    kick();
}

void FloodMerge::mark(const VlanId& vlanId) {
    changed_.insert(vlanId);
    kick();
}

void FloodMerge::kick() {
    if (enabled_ && wakeupTime() > clock().now()) wakeupTimeIs(clock().now());
}

void FloodMerge::onTime() {
    const Quil::Seconds end = clock().now() + quantum;
    while (enabled_ && !changed_.empty()) {
        const VlanId vlanId = *changed_.begin();
        changed_.erase(changed_.begin());
        mergeVlan(vlanId);
        if (clock().now() >= end) return wakeupTimeIs(clock().now());
    }
    if (enabled_) publishSources();
}

void FloodMerge::settle() {
    if (!enabled_) return;
    for (const VlanId& vlanId : std::exchange(changed_, {})) mergeVlan(vlanId);
    publishSources();
}

void FloodMerge::mergeVlan(const VlanId& vlanId) {
    Sets all;
    for (const auto& [name, source] : sources_) {
        if (source->isWhole) source->take(vlanId);
        const auto said = source->said.find(vlanId);
        if (said == source->said.end()) continue;
        for (const auto& [mac, set] : said->second) all[mac].add(set);
    }
    publish(vlanId, all);
}

void FloodMerge::publish(const VlanId& vlanId, const Sets& sets) {
    if (sets.empty()) {
        output_->vlanFloodSetDel(vlanId);
        return;
    }
    const auto vlan = output_->vlanFloodSetIs(vlanId);
    std::vector<Lanx::EthAddr> gone;
    for (const auto& [mac, unused] : vlan->floodSet()) {
        if (!sets.contains(mac)) gone.push_back(mac);
    }
    for (const auto& mac : gone) vlan->floodSetDel(mac);
    for (const auto& [mac, set] : sets) {
        const auto floodSet = vlan->floodSetIs(mac);
        floodSet->floodSetTypeIs(set.isAll ? L2Rib::floodSetTypeAll : L2Rib::floodSetTypeAny);
        std::vector<L2Rib::Dest> left;
        for (const auto& [dest, unused] : floodSet->destSet()) {
            if (!set.dests.contains(dest)) left.push_back(dest);
        }
        for (const auto& [dest, flag] : set.dests) floodSet->destSetIs(dest, flag);
        for (const auto& dest : left) floodSet->destSetDel(dest);
    }
}

void FloodMerge::publishSources() {
    std::uint32_t mask = 0;
    for (const auto& [name, source] : sources_) {
        if (source->said.empty()) continue;
        mask |= source->notifier() ? source->notifier()->source() : source->takenOver;
    }
    output_->sourceIs(mask);
    onChange_();
}

FloodMerge::Sets FloodMerge::setsOf(const L2Rib::VlanFloodSet& vlan) {
    Sets sets;
    for (const auto& [mac, floodSet] : vlan.floodSet()) {
        Set& set = sets[mac];
        set.isAll = floodSet->floodSetType() == L2Rib::floodSetTypeAll;
        for (const auto& [dest, flag] : floodSet->destSet()) {
            L2Rib::Dest member;
            member.copyAllButKey(dest);
            set.dests[member] = set.dests[member] || flag;
        }
    }
    return sets;
}

void FloodMerge::Source::onVlanFloodSet(const VlanId& vlanId) {
    changed(vlanId);
    vlans.erase(vlanId);
    const auto sets = notifier()->vlanFloodSet(vlanId);
    if (!sets) return;
    VlanWatcher& watcher = vlans.try_emplace(vlanId, *this, vlanId).first->second;
    watcher.notifierIs(sets);
    watcher.watch();
}

void FloodMerge::Source::markAll() {
    for (const auto& [vlanId, unused] : said) changed(vlanId);
    for (const auto& [vlanId, unused] : vlans) changed(vlanId);
}

void FloodMerge::Source::take(const VlanId& vlanId) {
    const auto vlan = notifier()->vlanFloodSet(vlanId);
    saidIs(vlanId, vlan ? setsOf(*vlan) : Sets());
}

void FloodMerge::Source::saidIs(const VlanId& vlanId, Sets sets) {
    if (sets.empty()) {
        said.erase(vlanId);
    } else {
        said[vlanId] = std::move(sets);
    }
}

void FloodMerge::VlanWatcher::watch() {
    for (const auto& [mac, unused] : notifier()->floodSet()) onFloodSet(mac);
}

void FloodMerge::VlanWatcher::onFloodSet(const Lanx::EthAddr& mac) {
    source.changed(vlanId);
    sets.erase(mac);
    if (const auto set = notifier()->floodSet(mac)) sets.try_emplace(mac, source, vlanId).first->second.notifierIs(set);
}

}  // namespace Agent
