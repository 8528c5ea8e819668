// AgentStatus.h: the agent-wide state: the highest identifiers handed out, and the switch that enables the agent.
//
// Threads   Event-loop thread; watchers are told from inside the setters, only of real changes.
#pragma once

#include "L2Rib/ObjId.h"
#include "Quil/TypeRegistry.h"

namespace L2Rib {

class L2RIB_EXPORT PolicySmStatus : public Quil::Entity {
 public:
    class L2RIB_EXPORT NotifieeConst : public Quil::Notifiee<PolicySmStatus, NotifieeConst> {
     public:
        virtual void onMaxLabelId() {}
        virtual void onMaxLbId() {}
        virtual void onMaxDestId() {}
    };

    explicit PolicySmStatus(Quil::Name name);
    ~PolicySmStatus() override;

    // The highest in use; they may go down.
    LabelId maxLabelId() const { return maxLabelId_; }
    LoadBalanceId maxLbId() const { return maxLbId_; }
    DestId maxDestId() const { return maxDestId_; }
    void maxLabelIdIs(LabelId id) { setAndNotify(maxLabelId_, id, notifiees_, &NotifieeConst::onMaxLabelId); }
    void maxLbIdIs(LoadBalanceId id) { setAndNotify(maxLbId_, id, notifiees_, &NotifieeConst::onMaxLbId); }
    void maxDestIdIs(DestId id) { setAndNotify(maxDestId_, id, notifiees_, &NotifieeConst::onMaxDestId); }

    const Quil::Type& fwkType() const override;
    static void fwkDeclare(Quil::TypeBuilder<PolicySmStatus>& type);
    Quil::NotifieeList<NotifieeConst>& fwkNotifiees() const { return notifiees_; }

 private:
    LabelId maxLabelId_;
    LoadBalanceId maxLbId_;
    DestId maxDestId_;
    mutable Quil::NotifieeList<NotifieeConst> notifiees_;
};

class L2RIB_EXPORT Config : public Quil::Entity {
 public:
    class L2RIB_EXPORT NotifieeConst : public Quil::Notifiee<Config, NotifieeConst> {
     public:
        virtual void onAgentEnabled() {}
    };

    explicit Config(Quil::Name name);
    ~Config() override;

    bool agentEnabled() const { return agentEnabled_; }
    void agentEnabledIs(bool enabled) {
        setAndNotify(agentEnabled_, enabled, notifiees_, &NotifieeConst::onAgentEnabled);
    }

    const Quil::Type& fwkType() const override;
    static void fwkDeclare(Quil::TypeBuilder<Config>& type);
    Quil::NotifieeList<NotifieeConst>& fwkNotifiees() const { return notifiees_; }

 private:
    bool agentEnabled_ = true;
    mutable Quil::NotifieeList<NotifieeConst> notifiees_;
};

L2RIB_EXPORT Quil::Ptr<PolicySmStatus> policySmStatusFactory(const Quil::Name& name);
L2RIB_EXPORT Quil::Ptr<Config> configFactory(const Quil::Name& name);

}  // namespace L2Rib
