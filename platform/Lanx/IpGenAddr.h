// IpGenAddr.h: an IPv4 or IPv6 address.
#pragma once

#include <array>
#include <cstring>

#include "Quil/AttrLog.h"
#include "Quil/Value.h"
#include "Verro/Hash.h"

namespace Lanx {

enum AddrFamily : std::uint32_t { ipv4 = 0, ipv6 = 1 };
constexpr auto fwkEnum(AddrFamily) {
    return Quil::enumTable<AddrFamily>("Lanx::AddrFamily", {{ipv4, "ipv4"}, {ipv6, "ipv6"}});
}
inline Quil::String stringValue(AddrFamily x) { return Quil::enumText(x); }
inline std::ostream& operator<<(std::ostream& out, AddrFamily x) { return out << stringValue(x); }

// The 16 address bytes as one IPv6 address.
struct Ip6Addr {
    std::array<std::uint8_t, 16> bytes{};
    std::uint32_t hash() const { return Verro::Util::hash(bytes.data(), bytes.size()); }
};

class L2RIB_EXPORT IpGenAddr : public Quil::Value<IpGenAddr> {
 public:
    constexpr IpGenAddr() = default;  // 0.0.0.0
    // The address as a number: 10.1.2.3 is 0x0a010203.
    static IpGenAddr fromIp4(std::uint32_t address);
    static IpGenAddr fromIp6(const std::array<std::uint8_t, 16>& bytes);
    explicit IpGenAddr(const Quil::String& text);  // "10.0.0.2", "2001:db8::1"; raises the range exception

    constexpr AddrFamily af() const { return family_; }
    // The first four bytes as a number; an IPv4 address whole.
    std::uint32_t ip4() const;
    Ip6Addr ip6() const { return {bytes_}; }
    const std::array<std::uint8_t, 16>& bytes() const { return bytes_; }
    Quil::String str() const;

    // Order: family, then bytes.
    static constexpr auto fwkFields() {
        return Quil::fieldList("Lanx::IpGenAddr", Quil::field("af", &IpGenAddr::family_),
                               Quil::field("bytes", &IpGenAddr::bytes_));
    }
    void fwkAppendStrep(Quil::String& out) const { out += str(); }
    void fwkParseStrep(Quil::StrepCursor& cursor) { *this = IpGenAddr(Quil::String(cursor.word())); }
    void fwkWrite(Quil::AttrLogWriter& log) const;
    void fwkRead(Quil::AttrLogReader& log);

 private:
    AddrFamily family_ = ipv4;
    std::array<std::uint8_t, 16> bytes_{};  // network order; IPv4 in the first four, the rest 0
};
static_assert(sizeof(IpGenAddr) == 20 && alignof(IpGenAddr) == 4);

}  // namespace Lanx
