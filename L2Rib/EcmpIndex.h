// EcmpIndex.h: the place of a member in a load-balance group, 0 to 15. Arithmetic and construction from a number are
// unchecked; reading a text or a log and indexing a record are checked.
#pragma once

#include "Quil/Scalar.h"

namespace L2Rib {

class EcmpIndex : public Quil::Scalar<EcmpIndex, std::uint8_t> {
 public:
    static constexpr const char* fwkName = "L2Rib::EcmpIndex";
    static constexpr std::uint32_t min = 0;
    static constexpr std::uint32_t max = 15;

    constexpr EcmpIndex() = default;
    constexpr explicit EcmpIndex(std::uint8_t value) : Scalar(value) {}
    explicit EcmpIndex(const Quil::String& text) { Quil::parseValue(text, *this); }

    // 8-bit addition that wraps.
    constexpr EcmpIndex& operator+=(EcmpIndex other) {
        value_ = static_cast<std::uint8_t>(value_ + other.value_);
        return *this;
    }
    constexpr EcmpIndex operator+(EcmpIndex other) const { return EcmpIndex(*this) += other; }

    static void fwkCheck(std::uint64_t value) {
        if (value > max) {
            throw Quil::RangeException("EcmpIndex::value < EcmpIndex::min or > EcmpIndex::max not allowed");
        }
    }
};

}  // namespace L2Rib
