// EthAddr.h: a 48-bit MAC address.
#pragma once

#include <array>
#include <cstring>

#include "Quil/AttrLog.h"
#include "Quil/Value.h"

namespace Lanx {

class L2RIB_EXPORT EthAddr {
 public:
    constexpr EthAddr() = default;
    constexpr explicit EthAddr(const std::array<std::uint8_t, 6>& bytes) : bytes_(bytes) {}
    // From the number whose most significant of 48 bits comes first on the wire.
    static constexpr EthAddr fromNumber(std::uint64_t number) {
        EthAddr addr;
        for (int i = 5; i >= 0; --i, number >>= 8)
            addr.bytes_[static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(number);
        return addr;
    }
    explicit EthAddr(const Quil::String& text);  // "02:aa:aa:aa:aa:01"; raises the range exception

    constexpr const std::array<std::uint8_t, 6>& bytes() const { return bytes_; }
    std::uint64_t number() const {
        std::uint64_t raw = 0;
        std::memcpy(&raw, bytes_.data(), 6);
        return __builtin_bswap64(raw) >> 16;
    }
    bool isMulticast() const { return (bytes_[0] & 1) != 0; }  // IEEE 802 group bit
    bool isZero() const { return number() == 0; }
    // The upper half of MurmurHash3's 64-bit finaliser: fast, and neighbouring addresses land far apart.
    std::uint32_t hash() const {
        std::uint64_t h = number();
        h = (h ^ h >> 33) * 0xff51afd7ed558ccdULL;
        h = (h ^ h >> 33) * 0xc4ceb9fe1a85ec53ULL;
        return static_cast<std::uint32_t>((h ^ h >> 33) >> 32);
    }
    Quil::String str() const;

    friend bool operator==(const EthAddr& a, const EthAddr& b) { return a.number() == b.number(); }
    friend bool operator<(const EthAddr& a, const EthAddr& b) { return a.number() < b.number(); }

    void fwkAppendStrep(Quil::String& out) const { out += str(); }
    void fwkParseStrep(Quil::StrepCursor& cursor) { *this = EthAddr(Quil::String(cursor.word())); }
    void fwkWrite(Quil::AttrLogWriter& log) const { log.writeBytes(bytes_.data(), bytes_.size()); }
    void fwkRead(Quil::AttrLogReader& log) { log.readBytes(bytes_.data(), bytes_.size()); }

 private:
    std::array<std::uint8_t, 6> bytes_{};
};
static_assert(sizeof(EthAddr) == 6 && alignof(EthAddr) == 1);

}  // namespace Lanx
