// MplsLabel.h: an MPLS label. RFC 3032 labels have 20 bits; values above them are markers of the label universe, up to
// luWithdraw.
#pragma once

#include "Quil/Scalar.h"

namespace Lanx {

class MplsLabel : public Quil::Scalar<MplsLabel, std::uint32_t> {
 public:
    static constexpr const char* fwkName = "Lanx::MplsLabel";
    static constexpr std::uint32_t min = 0;
    static constexpr std::uint32_t null = 0x100000;        // the default: no label
    static constexpr std::uint32_t luWithdraw = 0x800000;  // a withdrawn label; the largest value

    constexpr MplsLabel() : Scalar(null) {}
    explicit MplsLabel(std::uint32_t value) : Scalar((fwkCheck(value), value)) {}
    explicit MplsLabel(const Quil::String& text) { Quil::parseValue(text, *this); }

    static void fwkCheck(std::uint64_t value) {
        if (value > luWithdraw) {
            throw Quil::RangeException("MplsLabel::value < MplsLabel::min or > MplsLabel::luWithdraw not allowed");
        }
    }
};
static_assert(sizeof(MplsLabel) == 4);

}  // namespace Lanx
