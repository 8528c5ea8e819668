#include "l2ribd/PolicyFile.h"

#include <fstream>
#include <sstream>

#include "common/JsonObject.h"
#include "common/Names.h"

namespace {

Agent::Policy policyOf(const Apps::Json& json, const Quil::String& root) {
    Agent::Policy policy;
    Apps::JsonObject object(json);
    object.read("preferences", [&](const Apps::Json& preferences) {
        Apps::JsonObject each(preferences);
        for (const auto& [name, unused] : preferences.items()) {
            each.read(name.c_str(), [&, source = name](const Apps::Json& value) {
                const auto preference = static_cast<std::uint32_t>(Apps::bounded(value, 0xffffffff));
                if (preference == 0) throw Quil::RangeException("is 0, which is no preference");
                policy.preferences[Apps::sourceOfName(source)] = preference;
            });
        }
    });
    object.read("ownVtep", [&](const Apps::Json& vtep) { policy.ownVtep = Lanx::IpGenAddr(vtep.get<Quil::String>()); });
    auto names = Apps::InterfaceNames::readFrom(root);
    object.readEach("multihomed", [&](const Apps::Json& value) {
        const auto name = value.get<Quil::String>();
        policy.multihomed.insert(names.interfaceIs(name));  // as files have it
        for (const auto& intfId : names.interfacesOf(name)) policy.multihomed.insert(intfId);
    });
    object.end();
    return policy;
}

}  // namespace

Agent::Policy readPolicy(const Quil::String& path, const Quil::String& root) {
    std::ifstream file(path);
    if (!file) throw Quil::RangeException("cannot be read", path);
    std::ostringstream text;
    text << file.rdbuf();
    try {
        return policyOf(Apps::parseJson(text.str()), root);
    } catch (const Quil::RangeException& error) {
        throw Quil::RangeException(error.what(), path);
    }
}
