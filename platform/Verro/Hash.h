// Hash.h: the hashes of the house.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>

namespace Verro {

// Bob Jenkins' one-at-a-time hash over little-endian bytes, start value 0.
class OneAtATime {
 public:
    constexpr OneAtATime& addByte(std::uint8_t byte) {
        hash_ += byte;
        hash_ += hash_ << 10;
        hash_ ^= hash_ >> 6;
        return *this;
    }
    template <std::unsigned_integral T>
    constexpr OneAtATime& add(T number) {
        for (std::size_t i = 0; i < sizeof(T); ++i) {
            addByte(static_cast<std::uint8_t>(static_cast<std::uint64_t>(number) >> (8 * i)));
        }
        return *this;
    }
    constexpr std::uint32_t finish() const {
        std::uint32_t h = hash_;
        h += h << 3;
        h ^= h >> 11;
        h += h << 15;
        return h;
    }

 private:
    std::uint32_t hash_ = 0;
};

namespace Util {

// The byte-string hash of file headers: one-at-a-time ("a" gives 0xca2e9442).
inline std::uint32_t hash(const void* bytes, std::size_t size) {
    OneAtATime state;
    for (std::size_t i = 0; i < size; ++i) state.addByte(static_cast<const std::uint8_t*>(bytes)[i]);
    return state.finish();
}

// The 32 bits in reverse order.
constexpr std::uint32_t reverse(std::uint32_t bits) {
    bits = (bits >> 1 & 0x55555555u) | (bits & 0x55555555u) << 1;
    bits = (bits >> 2 & 0x33333333u) | (bits & 0x33333333u) << 2;
    bits = (bits >> 4 & 0x0f0f0f0fu) | (bits & 0x0f0f0f0fu) << 4;
    return __builtin_bswap32(bits);
}
static_assert(reverse(1) == 0x80000000u && reverse(0x12345678u) == 0x1e6a2c48u);

}  // namespace Util
}  // namespace Verro
