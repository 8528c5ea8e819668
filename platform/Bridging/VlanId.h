// VlanId.h: an IEEE 802.1Q VLAN number, 1 to 4094.
#pragma once

#include "Quil/Scalar.h"

namespace Bridging {

class VlanId : public Quil::Scalar<VlanId, std::uint16_t> {
 public:
    static constexpr const char* fwkName = "Bridging::VlanId";
    static constexpr std::uint16_t min = 1;
    static constexpr std::uint16_t max = 4094;

    constexpr VlanId() = default;  // 0: no VLAN
    explicit VlanId(std::uint32_t value) : Scalar((fwkCheck(value), static_cast<std::uint16_t>(value))) {}
    explicit VlanId(const Quil::String& text) { Quil::parseValue(text, *this); }

    static void fwkCheck(std::uint64_t value) {
        if (value < min || value > max) throw Quil::RangeException("VlanId::value < 1 or > 4094 not allowed");
    }
};
static_assert(sizeof(VlanId) == 2);

}  // namespace Bridging
