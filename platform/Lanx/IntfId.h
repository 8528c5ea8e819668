// IntfId.h: an interface of the switch: a kind in the top 8 bits and a payload of 56, in one 64-bit number.
#pragma once

#include "Quil/AttrLog.h"
#include "Quil/Value.h"
#include "Verro/Hash.h"

namespace Lanx {

class L2RIB_EXPORT IntfId {
 public:
    enum Kind : std::uint8_t { none = 0, ethernet = 1, dynamicTunnel = 2, vxlan = 3 };

    constexpr IntfId() = default;
    constexpr explicit IntfId(std::uint64_t value) : value_(value) {}
    constexpr IntfId(Kind kind, std::uint64_t payload) : value_(std::uint64_t(kind) << 56 | (payload & payloadMask)) {}
    // "Ethernet7", "DynamicTunnel1", "Vxlan1", "None", or the whole number in decimal.
    explicit IntfId(const Quil::String& text);

    constexpr std::uint64_t value() const { return value_; }
    constexpr Kind kind() const { return static_cast<Kind>(value() >> 56); }
    constexpr std::uint64_t payload() const { return value() & payloadMask; }
    constexpr std::uint32_t hash() const { return Verro::OneAtATime().add(value()).finish(); }
    // A kind that has no name is printed as the whole number.
    Quil::String str() const;

    friend constexpr bool operator==(const IntfId& a, const IntfId& b) { return a.value() == b.value(); }
    friend constexpr bool operator<(const IntfId& a, const IntfId& b) { return a.value() < b.value(); }
    friend constexpr bool operator!(const IntfId& a) { return a.value() == 0; }

    void fwkAppendStrep(Quil::String& out) const { out += str(); }
    void fwkParseStrep(Quil::StrepCursor& cursor) { *this = IntfId(Quil::String(cursor.word())); }
    void fwkWrite(Quil::AttrLogWriter& log) const { log.write(value()); }
    void fwkRead(Quil::AttrLogReader& log) { value_ = log.get<std::uint64_t>(); }

 private:
    static constexpr std::uint64_t payloadMask = (std::uint64_t(1) << 56) - 1;
    Quil::Flat<std::uint64_t> value_;
};
static_assert(sizeof(IntfId) == 8 && alignof(IntfId) == 4);

// The reading of an interface as a dynamic tunnel.
struct DynamicTunnelIntfId {
    // The tunnel's number; 0 when the interface is no dynamic tunnel.
    static constexpr std::uint64_t tunnelId(IntfId intfId) {
        return intfId.kind() == IntfId::dynamicTunnel ? intfId.payload() : 0;
    }
};

}  // namespace Lanx
