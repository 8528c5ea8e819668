// FloodSetTriple.h: one member of a flood set as a flat value: VLAN, MAC address, destination.
#pragma once

#include "Bridging/VlanId.h"
#include "L2Rib/Dest.h"
#include "Lanx/EthAddr.h"
#include "Quil/Hash.h"

namespace L2Rib {

// ==, <, text and wire form by the fields, in order; the hash is of a kind of its own.
class L2RIB_EXPORT FloodSetTriple : public Quil::Value<FloodSetTriple> {
 public:
    FloodSetTriple() = default;
    FloodSetTriple(Bridging::VlanId vlanId, const Lanx::EthAddr& macAddr, const Dest& dest)
        : vlanId_(vlanId), macAddr_(macAddr), dest_(dest) {}
    explicit FloodSetTriple(const Quil::String& text) { Quil::parseValue(text, *this); }

    Bridging::VlanId vlanId() const { return vlanId_; }
    const Lanx::EthAddr& macAddr() const { return macAddr_; }
    const Dest& dest() const { return dest_; }
    void vlanIdIs(Bridging::VlanId vlanId) { vlanId_ = vlanId; }
    void macAddrIs(const Lanx::EthAddr& macAddr) { macAddr_ = macAddr; }
    void destIs(const Dest& dest) { dest_ = dest; }

    // MurmurHash3 over the 32-bit hashes of the three.
    std::uint32_t hash() const {
        return Quil::Hash().mix(vlanId_.hash()).mix(macAddr_.hash()).mix(dest_.hash()).finish();
    }
    Quil::String str() const;

    static constexpr auto fwkFields() {
        return Quil::fieldList("L2Rib::FloodSetTriple", Quil::field("vlanId", &FloodSetTriple::vlanId_),
                               Quil::field("macAddr", &FloodSetTriple::macAddr_),
                               Quil::field("dest", &FloodSetTriple::dest_));
    }

 private:
    Bridging::VlanId vlanId_;
    Lanx::EthAddr macAddr_;
    Dest dest_;
};

inline Quil::String FloodSetTriple::str() const { return Quil::valueToStrep(*this); }

}  // namespace L2Rib
