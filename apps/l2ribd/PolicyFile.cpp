#include "l2ribd/PolicyFile.h"

#include "common/JsonFile.h"
#include "common/Names.h"

namespace {

std::uint32_t between(const Apps::Json& value, std::uint32_t min, std::uint32_t max) {
    if (!value.is_number_unsigned() || value.get<std::uint64_t>() < min || value.get<std::uint64_t>() > max) {
        throw Quil::RangeException(Quil::cat("is not a number from ", min, " to ", max));
    }
    return value.get<std::uint32_t>();
}

// {"bgp": 150, ...}
void readNumbers(const Apps::Json& json, std::map<L2Rib::Source, std::uint32_t>& into) {
    Apps::JsonObject numbers(json);
    for (const auto& [name, unused] : json.items()) {
        numbers.read(name.c_str(), [&, source = name](const Apps::Json& value) {
            into[Apps::sourceOfName(source)] = between(value, 1, 0xffffffff);
        });
    }
}

Agent::DuplicateRules::Action actionOf(const Apps::Json& value) {
    const auto name = value.get<Quil::String>();
    if (name != "warn" && name != "freeze") throw Quil::RangeException("is neither warn nor freeze");
    return name == "warn" ? Agent::DuplicateRules::Action::warn : Agent::DuplicateRules::Action::freeze;
}

void readDuplicates(const Apps::Json& json, Agent::DuplicateRules& into) {
    Apps::JsonObject object(json);
    object.read("moves", [&](const Apps::Json& value) { into.moves = between(value, 2, 1000); });
    object.read("seconds", [&](const Apps::Json& value) { into.window = between(value, 1, 3600); });
    object.read("action", [&](const Apps::Json& value) { into.action = actionOf(value); });
    object.read("recovery", [&](const Apps::Json& value) {
        if (into.action == Agent::DuplicateRules::Action::warn) throw Quil::RangeException("is for freeze only");
        into.recovery = between(value, 30, 3600);
    });
    object.end();
}

Agent::Policy policyOf(const Apps::Json& json, const Quil::String& root) {
    Agent::Policy policy;
    Apps::JsonObject object(json);
    object.read("preferences", [&](const Apps::Json& value) { readNumbers(value, policy.preferences); });
    object.read("quotas", [&](const Apps::Json& value) { readNumbers(value, policy.quotas); });
    object.read("ownVtep", [&](const Apps::Json& vtep) { policy.ownVtep = Lanx::IpGenAddr(vtep.get<Quil::String>()); });
    auto names = Apps::InterfaceNames::readFrom(root);
    object.readEach("multihomed", [&](const Apps::Json& value) {
        const auto name = value.get<Quil::String>();
        policy.multihomed.insert(names.interfaceIs(name));  // as files have it
        for (const auto& intfId : names.interfacesOf(name)) policy.multihomed.insert(intfId);
    });
    object.read("duplicates", [&](const Apps::Json& value) { readDuplicates(value, policy.duplicates); });
    object.read("logEvery", [&](const Apps::Json& value) { policy.duplicates.logEvery = between(value, 1, 86400); });
    object.end();
    return policy;
}

}  // namespace

Agent::Policy readPolicy(const Quil::String& path, const Quil::String& root) {
    return Apps::readJson(path, [&](const Apps::Json& json) { return policyOf(json, root); });
}
