// CiVtepIndex.h: the place of a VTEP in a compact destination, 0 or 1. Every construction is checked.
#pragma once

#include "Quil/Scalar.h"

namespace L2Rib {

class CiVtepIndex : public Quil::Scalar<CiVtepIndex, std::uint32_t> {
 public:
    static constexpr const char* fwkName = "L2Rib::CiVtepIndex";
    static constexpr std::uint32_t min = 0;
    static constexpr std::uint32_t max = 1;

    constexpr CiVtepIndex() = default;
    explicit CiVtepIndex(std::uint32_t value) : Scalar((fwkCheck(value), value)) {}
    explicit CiVtepIndex(const Quil::String& text) { Quil::parseValue(text, *this); }

    static void fwkCheck(std::uint64_t value) {
        if (value > max) {
            throw Quil::RangeException("CiVtepIndex::value < CiVtepIndex::min or > CiVtepIndex::max not allowed");
        }
    }
};

}  // namespace L2Rib
