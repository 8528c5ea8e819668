// FloodSet.h: to which destinations traffic of one MAC address in one VLAN is replicated; and the flood sets of a VLAN.
//
// The tree is: source entry or flood-set output -> VlanFloodSet per VLAN -> FloodSet per MAC -> a set of destinations.
//
// Owner     The parent holds its children by counted pointers; one that is removed lives on while someone holds it.
// Threads   Event-loop thread; watchers are told from inside the setters, only of real changes: of each member by its
//           key. The callbacks without a key are those of a framework that announces a collection as a whole; nothing
//           here does.
#pragma once

#include <unordered_map>

#include "Bridging/VlanId.h"
#include "L2Rib/Dest.h"
#include "L2Rib/FloodSetType.h"
#include "L2Rib/Hash.h"
#include "Lanx/EthAddr.h"
#include "Quil/Children.h"
#include "Quil/TypeRegistry.h"

namespace L2Rib {

class L2RIB_EXPORT FloodSet : public Quil::Entity {
 public:
    // A destination's key, kind and variant all take part in membership.
    using DestSet = std::unordered_map<Dest, bool, HashOf<Dest>>;

    class L2RIB_EXPORT NotifieeConst : public Quil::Notifiee<FloodSet, NotifieeConst> {
     public:
        virtual void onFloodSetType() {}
        virtual void onDestSet(const Dest&) {}
        virtual void onDestSet() {}
    };

    explicit FloodSet(const Lanx::EthAddr& macAddr);
    ~FloodSet() override;

    const Lanx::EthAddr& macAddr() const { return macAddr_; }
    FloodSetType floodSetType() const { return floodSetType_; }
    void floodSetTypeIs(FloodSetType type) {
        setAndNotify(floodSetType_, type, notifiees_, &NotifieeConst::onFloodSetType);
    }
    const DestSet& destSet() const { return destSet_; }
    bool destSet(const Dest& dest) const;
    // The range exception for a destination whose stored label is none; the set is unchanged then.
    void destSetIs(const Dest& dest, bool flag);
    bool destSetDel(const Dest& dest);  // whether it was there
    void destSetDelAll();

    const Quil::Type& fwkType() const override;
    static void fwkDeclare(Quil::TypeBuilder<FloodSet>& type);
    Quil::NotifieeList<NotifieeConst>& fwkNotifiees() const { return notifiees_; }

 private:
    const Lanx::EthAddr macAddr_;
    FloodSetType floodSetType_ = floodSetTypeInvalid;
    DestSet destSet_;
    mutable Quil::NotifieeList<NotifieeConst> notifiees_;
};

class L2RIB_EXPORT VlanFloodSet : public Quil::Entity {
 public:
    class L2RIB_EXPORT NotifieeConst : public Quil::Notifiee<VlanFloodSet, NotifieeConst> {
     public:
        virtual void onFloodSet(const Lanx::EthAddr&) {}
        virtual void onFloodSet() {}
    };

    explicit VlanFloodSet(const Bridging::VlanId& vlanId);
    ~VlanFloodSet() override;

    const Bridging::VlanId& vlanId() const { return vlanId_; }
    const std::map<Lanx::EthAddr, Quil::Ptr<FloodSet>>& floodSet() const { return floodSet_.all(); }
    Quil::Ptr<FloodSet> floodSet(const Lanx::EthAddr& macAddr) const { return floodSet_.child(macAddr); }
    Quil::Ptr<FloodSet> floodSetIs(const Lanx::EthAddr& macAddr) { return floodSet_.is(macAddr); }
    Quil::Ptr<FloodSet> floodSetDel(const Lanx::EthAddr& macAddr) { return floodSet_.del(macAddr); }
    void floodSetDelAll() { floodSet_.delAll(); }

    const Quil::Type& fwkType() const override;
    static void fwkDeclare(Quil::TypeBuilder<VlanFloodSet>& type);
    Quil::NotifieeList<NotifieeConst>& fwkNotifiees() const { return notifiees_; }

 private:
    const Bridging::VlanId vlanId_;
    mutable Quil::NotifieeList<NotifieeConst> notifiees_;
    Quil::Children<Lanx::EthAddr, FloodSet, NotifieeConst> floodSet_{this, "floodSet", notifiees_,
                                                                     &NotifieeConst::onFloodSet};
};

}  // namespace L2Rib
