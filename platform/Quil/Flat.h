// Flat.h: a 64-bit number laid out as two 32-bit words.
//
// Records in shared memory must look the same to 32-bit and 64-bit processes. i386 aligns 64-bit numbers in structures
// to 4 bytes, x86-64 to 8; this type is aligned to 4 everywhere, without packed structures or misaligned references.
#pragma once

#include <array>
#include <bit>
#include <cstdint>

namespace Quil {

template <class T>
class Flat {
    static_assert(sizeof(T) == 8);

 public:
    using Number = T;
    constexpr Flat() : Flat(T()) {}
    constexpr Flat(T value) : words_(std::bit_cast<std::array<std::uint32_t, 2>>(value)) {}  // NOLINT: a number is one
    constexpr operator T() const { return std::bit_cast<T>(words_); }                        // NOLINT

 private:
    std::array<std::uint32_t, 2> words_;  // in the machine's order, as the number itself would lie
};
static_assert(sizeof(Flat<std::uint64_t>) == 8 && alignof(Flat<std::uint64_t>) == 4);

}  // namespace Quil
