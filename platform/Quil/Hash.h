// Hash.h: MurmurHash3 (x86, 32 bits) over whole 4-byte pieces, fed one by one.
#pragma once

#include <bit>
#include <cstdint>

namespace Quil {

class Hash {
 public:
    constexpr explicit Hash(std::uint32_t seed = 0) : state_(seed) {}
    constexpr Hash& mix(std::uint32_t piece) {
        state_ ^= std::rotl(piece * 0xcc9e2d51u, 15) * 0x1b873593u;
        state_ = std::rotl(state_, 13) * 5 + 0xe6546b64u;
        length_ += 4;
        return *this;
    }
    // Of the pieces so far: no tail is left, the length is mixed in.
    constexpr std::uint32_t finish() const {
        std::uint32_t h = state_ ^ length_;
        h = (h ^ h >> 16) * 0x85ebca6bu;
        h = (h ^ h >> 13) * 0xc2b2ae35u;
        return h ^ h >> 16;
    }

 private:
    std::uint32_t state_;
    std::uint32_t length_ = 0;  // bytes
};

}  // namespace Quil
