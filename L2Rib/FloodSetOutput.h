// FloodSetOutput.h: the merged flood sets of all sources. See FloodSet.h.
#pragma once

#include "L2Rib/FloodSet.h"

namespace L2Rib {

class L2RIB_EXPORT FloodSetOutput : public Quil::Entity {
 public:
    class L2RIB_EXPORT NotifieeConst : public Quil::Notifiee<FloodSetOutput, NotifieeConst> {
     public:
        virtual void onSource() {}
        virtual void onVlanFloodSet(const Bridging::VlanId&) {}
        virtual void onVlanFloodSet() {}
    };

    explicit FloodSetOutput(Quil::Name name);
    ~FloodSetOutput() override;

    // The sources whose flood sets it holds, a mask.
    std::uint32_t source() const { return source_; }
    void sourceIs(std::uint32_t mask) { setAndNotify(source_, mask, notifiees_, &NotifieeConst::onSource); }

    const std::map<Bridging::VlanId, Quil::Ptr<VlanFloodSet>>& vlanFloodSet() const { return vlanFloodSet_.all(); }
    Quil::Ptr<VlanFloodSet> vlanFloodSet(Bridging::VlanId vlanId) const { return vlanFloodSet_.child(vlanId); }
    Quil::Ptr<VlanFloodSet> vlanFloodSetIs(Bridging::VlanId vlanId) { return vlanFloodSet_.is(vlanId); }
    Quil::Ptr<VlanFloodSet> vlanFloodSetDel(Bridging::VlanId vlanId) { return vlanFloodSet_.del(vlanId); }
    void vlanFloodSetDelAll() { vlanFloodSet_.delAll(); }

    const Quil::Type& fwkType() const override;
    static void fwkDeclare(Quil::TypeBuilder<FloodSetOutput>& type);
    Quil::NotifieeList<NotifieeConst>& fwkNotifiees() const { return notifiees_; }

 private:
    std::uint32_t source_ = 0;
    mutable Quil::NotifieeList<NotifieeConst> notifiees_;
    Quil::Children<Bridging::VlanId, VlanFloodSet, NotifieeConst> vlanFloodSet_{this, "vlanFloodSet", notifiees_,
                                                                                &NotifieeConst::onVlanFloodSet};
};

L2RIB_EXPORT Quil::Ptr<FloodSetOutput> floodSetOutputFactory(const Quil::Name& name);

}  // namespace L2Rib
