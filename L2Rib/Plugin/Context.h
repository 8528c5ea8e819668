// Context.h: what the process that hosts consumers gives to each of them, and where they are counted.
//
// Owner     The hosting process, one context; plug-ins share it.
// Threads   Event-loop thread. Each setter notifies only when the value really changes.
#pragma once

#include <unordered_map>

#include "Corestore/EntityManager.h"
#include "L2Rib/HostOutput.h"
#include "Quil/TypeRegistry.h"

namespace L2Rib::Plugin {

class L2RIB_EXPORT Context : public Quil::Entity {
 public:
    class L2RIB_EXPORT NotifieeConst : public Quil::Notifiee<Context, NotifieeConst> {
     public:
        virtual void onEntityManager() {}
        virtual void onL2RibOutput() {}
        virtual void onClock() {}
        virtual void onPluginName(const Quil::String&) {}
        virtual void onPluginCount() {}
    };

    Context();
    ~Context() override;

    const Quil::Ptr<Corestore::EntityManager>& entityManager() const { return entityManager_; }
    void entityManagerIs(const Quil::Ptr<Corestore::EntityManager>& entityManager) {
        setAndNotify(entityManager_, entityManager, notifiees_, &NotifieeConst::onEntityManager);
    }
    // The output host table, mounted for reading.
    const Quil::Ptr<const HostOutput>& l2RibOutput() const { return l2RibOutput_; }
    void l2RibOutputIs(const Quil::Ptr<const HostOutput>& l2RibOutput) {
        setAndNotify(l2RibOutput_, l2RibOutput, notifiees_, &NotifieeConst::onL2RibOutput);
    }
    const Quil::Ptr<const Quil::Clock>& clock() const { return clock_; }
    void clockIs(const Quil::Ptr<const Quil::Clock>& clock) {
        setAndNotify(clock_, clock, notifiees_, &NotifieeConst::onClock);
    }

    // The names of the clients that run; two of one name share an entry.
    const std::unordered_map<Quil::String, bool>& pluginName() const { return pluginName_; }
    bool pluginName(const Quil::String& name) const;
    void pluginNameIs(const Quil::String& name, bool value);
    void pluginNameDel(const Quil::String& name);
    void pluginNameDelAll();

    // How many clients run.
    std::uint32_t pluginCount() const { return pluginCount_; }
    void pluginCountIs(std::uint32_t count) {
        setAndNotify(pluginCount_, count, notifiees_, &NotifieeConst::onPluginCount);
    }
    void pluginCountInc(std::uint32_t n = 1) { pluginCountIs(pluginCount_ + n); }
    void pluginCountDec(std::uint32_t n = 1) { pluginCountIs(pluginCount_ - n); }

    const Quil::Type& fwkType() const override;
    static void fwkDeclare(Quil::TypeBuilder<Context>& type);
    Quil::NotifieeList<NotifieeConst>& fwkNotifiees() const { return notifiees_; }

 private:
    Quil::Ptr<Corestore::EntityManager> entityManager_;
    Quil::Ptr<const HostOutput> l2RibOutput_;
    Quil::Ptr<const Quil::Clock> clock_;
    std::unordered_map<Quil::String, bool> pluginName_;
    std::uint32_t pluginCount_ = 0;
    mutable Quil::NotifieeList<NotifieeConst> notifiees_;
};

L2RIB_EXPORT Quil::Ptr<Context> contextFactory();

}  // namespace L2Rib::Plugin
