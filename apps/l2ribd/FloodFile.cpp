#include "l2ribd/FloodFile.h"

#include <utility>

#include "L2Rib/Constants.h"
#include "L2Rib/Source.h"
#include "Mem/Files.h"
#include "Quil/TypeRegistry.h"
#include "common/JsonFile.h"

namespace {

using Apps::Json;
using L2Rib::FloodSet;
using L2Rib::FloodSetOutput;

Json jsonOf(const FloodSet& set) {
    Json dests = Json::object();
    for (const auto& [dest, flag] : set.destSet()) dests[Quil::textOf(dest)] = flag;
    return {{"all", set.floodSetType() == L2Rib::floodSetTypeAll}, {"dests", dests}};
}

Json jsonOf(const FloodSetOutput& output) {
    Json vlans = Json::object();
    for (const auto& [vlanId, vlan] : output.vlanFloodSet()) {
        Json& sets = vlans[std::to_string(vlanId.value())] = Json::object();
        for (const auto& [mac, set] : vlan->floodSet()) sets[mac.str()] = jsonOf(*set);
    }
    return {{"sources", output.source()}, {"vlans", vlans}};
}

// Calls read(key, value) for each member of an object.
template <class F>
void forEachMember(const Json& json, F&& read) {
    if (!json.is_object()) throw Quil::RangeException("is not an object");
    for (const auto& [key, value] : json.items()) Apps::atKey(key, [&, k = key, &v = value] { read(k, v); });
}

void fill(FloodSet& set, const Json& json) {
    Apps::JsonObject object(json);
    object.require("all", [&](const Json& v) {
        set.floodSetTypeIs(v.get<bool>() ? L2Rib::floodSetTypeAll : L2Rib::floodSetTypeAny);
    });
    object.require("dests", [&](const Json& v) {
        forEachMember(v, [&](const Quil::String& dest, const Json& flag) {
            set.destSetIs(Quil::valueOf<L2Rib::Dest>(dest), flag.get<bool>());
        });
    });
    object.end();
}

void fill(FloodSetOutput& output, const Json& json) {
    Apps::JsonObject object(json);
    object.require("sources", [&](const Json& v) {
        output.sourceIs(static_cast<std::uint32_t>(Apps::bounded(v, L2Rib::sourceAll)));
    });
    object.require("vlans", [&](const Json& v) {
        forEachMember(v, [&](const Quil::String& number, const Json& sets) {
            const auto vlan = output.vlanFloodSetIs(Bridging::VlanId(number));
            forEachMember(sets, [&](const Quil::String& mac, const Json& set) {
                fill(*vlan->floodSetIs(Lanx::EthAddr(mac)), set);
            });
        });
    });
    object.end();
}

}  // namespace

FloodFile::FloodFile(const Quil::Ptr<const Quil::Clock>& clock, const Quil::String& directory,
                     Quil::Ptr<FloodSetOutput> floodSets, Report report)
    : NotifieeConst(clock),
      path_(directory + "/flood-sets.json"),
      floodSets_(std::move(floodSets)),
      report_(std::move(report)) {}

void FloodFile::read() const {
    if (!Mem::Files::open(path_, false)) return;
    try {
        Apps::readJson(path_, [&](const Json& json) { return fill(*floodSets_, json), 0; });
    } catch (...) {
        floodSets_->vlanFloodSetDelAll();
        floodSets_->sourceIs(0);
        throw;
    }
}

void FloodFile::changed() {
    if (!std::exchange(isToBeWritten_, true)) wakeupTimeIs(clock().now() + delay);
}

void FloodFile::writeNow() {
    if (!std::exchange(isToBeWritten_, false)) return;
    try {
        Apps::writeJson(path_, jsonOf(*floodSets_));
    } catch (const Quil::Exception& error) {
        report_(Quil::cat("the flood sets are not kept over a restart: ", error.what()));
    }
}
