#include "L2Rib/AgentStatus.h"

namespace L2Rib {

PolicySmStatus::PolicySmStatus(Quil::Name name) : Entity(std::move(name)) {}
PolicySmStatus::~PolicySmStatus() = default;

const Quil::Type& PolicySmStatus::fwkType() const { return Quil::typeOf<PolicySmStatus>(); }

void PolicySmStatus::fwkDeclare(Quil::TypeBuilder<PolicySmStatus>& type) {
    type.name("L2Rib::PolicySmStatus")
        .creator<Quil::Name>(&policySmStatusFactory)
        .attribute("maxLabelId", &PolicySmStatus::maxLabelId, &PolicySmStatus::maxLabelIdIs)
        .attribute("maxLbId", &PolicySmStatus::maxLbId, &PolicySmStatus::maxLbIdIs)
        .attribute("maxDestId", &PolicySmStatus::maxDestId, &PolicySmStatus::maxDestIdIs);
}

Config::Config(Quil::Name name) : Entity(std::move(name)) {}
Config::~Config() = default;

const Quil::Type& Config::fwkType() const { return Quil::typeOf<Config>(); }

void Config::fwkDeclare(Quil::TypeBuilder<Config>& type) {
    type.name("L2Rib::Config")
        .creator<Quil::Name>(&configFactory)
        .attribute("agentEnabled", &Config::agentEnabled, &Config::agentEnabledIs);
}

Quil::Ptr<PolicySmStatus> policySmStatusFactory(const Quil::Name& name) { return Quil::makePtr<PolicySmStatus>(name); }
Quil::Ptr<Config> configFactory(const Quil::Name& name) { return Quil::makePtr<Config>(name); }

}  // namespace L2Rib
