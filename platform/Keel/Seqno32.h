// Seqno32.h: a 32-bit sequence number, ordered as an unsigned number (RFC 7432 MAC mobility counts upwards from 0).
#pragma once

#include "Quil/Scalar.h"

namespace Keel {

class Seqno32 : public Quil::Scalar<Seqno32, std::uint32_t> {
 public:
    static constexpr const char* fwkName = "Keel::Seqno32";
    constexpr Seqno32() = default;
    constexpr explicit Seqno32(std::uint32_t value) : Scalar(value) {}
    explicit Seqno32(const Quil::String& text) { Quil::parseValue(text, *this); }
};

}  // namespace Keel
