#include "L2Rib/Plugin/Context.h"

namespace L2Rib::Plugin {

Context::Context() : Entity("context") {}
Context::~Context() = default;

bool Context::pluginName(const Quil::String& name) const {
    const auto found = pluginName_.find(name);
    return found != pluginName_.end() && found->second;
}

void Context::pluginNameIs(const Quil::String& name, bool value) {
    const auto [at, fresh] = pluginName_.try_emplace(name, value);
    if (!fresh && at->second == value) return;
    at->second = value;
    notifiees_.forEach([&](NotifieeConst& n) { n.onPluginName(name); });
}

void Context::pluginNameDel(const Quil::String& name) {
    const auto node = pluginName_.extract(name);
    if (node.empty()) return;
    notifiees_.forEach([&](NotifieeConst& n) { n.onPluginName(node.key()); });
}

void Context::pluginNameDelAll() {
    while (!pluginName_.empty()) pluginNameDel(pluginName_.begin()->first);
}

const Quil::Type& Context::fwkType() const { return Quil::typeOf<Context>(); }

void Context::fwkDeclare(Quil::TypeBuilder<Context>& type) {
    const auto nameOf = [](const auto& entity) { return entity ? entity->name() : Quil::String(); };
    type.name("L2Rib::Plugin::Context")
        .creator<>([] { return contextFactory(); })
        .attribute("entityManager", [](const Context& c) { return c.entityManager() ? c.entityManager()->root() : ""; })
        .attribute("l2RibOutput", [nameOf](const Context& c) { return nameOf(c.l2RibOutput()); })
        .attribute("clock", [](const Context& c) { return c.clock() ? c.clock()->now() : 0.0; })
        .attribute("pluginName", [](const Context& c) { return Quil::mapText(c.pluginName()); })
        .attribute("pluginCount", &Context::pluginCount, &Context::pluginCountIs);
}

Quil::Ptr<Context> contextFactory() { return Quil::makePtr<Context>(); }

}  // namespace L2Rib::Plugin
