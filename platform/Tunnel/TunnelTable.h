// TunnelTable.h: identifiers of the tunnel table.
#pragma once

#include "Quil/Scalar.h"

namespace Tunnel {

struct TunnelTable {
    // 64 bits of which the upper 16 are zero; 0 means no tunnel.
    class TunnelId : public Quil::Scalar<TunnelId, std::uint64_t> {
     public:
        static constexpr const char* fwkName = "Tunnel::TunnelTable::TunnelId";
        static constexpr std::uint64_t minValue = 0;
        static constexpr std::uint64_t maxValue = 0x0000ffffffffffffULL;

        constexpr TunnelId() = default;
        explicit TunnelId(std::uint64_t value) : Scalar((fwkCheck(value), value)) {}
        explicit TunnelId(const Quil::String& text) { Quil::parseValue(text, *this); }
        Quil::String toStrep() const { return str(); }

        static void fwkCheck(std::uint64_t value) {
            if (value > maxValue) {
                throw Quil::RangeException("TunnelId::value < TunnelId::minValue or > TunnelId::maxValue not allowed");
            }
        }
    };
};

}  // namespace Tunnel
