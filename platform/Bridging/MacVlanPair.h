// MacVlanPair.h: a host's name on layer 2: its MAC address in a VLAN. The key of the host tables.
#pragma once

#include "Bridging/VlanId.h"
#include "Lanx/EthAddr.h"

namespace Bridging {

class L2RIB_EXPORT MacVlanPair : public Quil::Value<MacVlanPair> {
 public:
    constexpr MacVlanPair() = default;
    constexpr MacVlanPair(Lanx::EthAddr ethAddr, VlanId vlanId) : ethAddr_(ethAddr), vlanId_(vlanId) {}
    // "02:aa:aa:aa:aa:01/10". The default key, whose VLAN is 0, prints but cannot be read back.
    explicit MacVlanPair(const Quil::String& text) { Quil::parseValue(text, *this); }

    constexpr Lanx::EthAddr ethAddr() const { return ethAddr_; }
    constexpr VlanId vlanId() const { return vlanId_; }
    std::uint32_t hash() const { return ethAddr_.hash() ^ vlanId_.value(); }
    Quil::String str() const { return Quil::cat(ethAddr_, "/", vlanId_); }

    // Order: MAC, then VLAN.
    static constexpr auto fwkFields() {
        return Quil::fieldList("Bridging::MacVlanPair", Quil::field("ethAddr", &MacVlanPair::ethAddr_),
                               Quil::field("vlanId", &MacVlanPair::vlanId_));
    }
    void fwkAppendStrep(Quil::String& out) const { out += str(); }
    void fwkParseStrep(Quil::StrepCursor& cursor);

 private:
    Lanx::EthAddr ethAddr_;
    [[maybe_unused]] std::uint16_t zero0_ = 0;
    VlanId vlanId_;
    [[maybe_unused]] std::uint16_t zero1_ = 0;
};
static_assert(sizeof(MacVlanPair) == 12);

}  // namespace Bridging
