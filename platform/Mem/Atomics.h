// Atomics.h: the only way to words that another process may read while they change.
//
// One rule: every store releases, every load acquires. With one writer, what a reader knows is then always a prefix of
// what the writer did, in the writer's order; on x86 it costs nothing, and it needs no fence.
//
// A Word64 lies on an 8-byte boundary (also in 32-bit builds, where the compiler would settle for 4).
#pragma once

#include <cstdint>
#include <cstring>

#include "Mem/Observer.h"

namespace Mem {

// Records are copied word by word over memory that the writer also reads as a record: the words may alias anything.
using AliasingU32 = std::uint32_t __attribute__((may_alias));
using AliasingU64 = std::uint64_t __attribute__((may_alias));

struct Word32 {
    AliasingU32 raw;
};
struct alignas(8) Word64 {
    AliasingU64 raw;
};
static_assert(sizeof(Word32) == 4 && sizeof(Word64) == 8 && alignof(Word64) == 8);

// A 64-bit number at an address that is only a multiple of 4. It is stored and loaded as two words, so a reader may see
// halves of two values: whoever uses it says why that does no harm.
struct SplitWord64 {
    Word32 low;
    Word32 high;
};

namespace Atomics {

// Whether the processor loads and stores 64 bits as one unit.
L2RIB_EXPORT bool supported();

inline std::uint32_t load32(const Word32& word) { return __atomic_load_n(&word.raw, __ATOMIC_ACQUIRE); }
inline std::uint64_t load64(const Word64& word) { return __atomic_load_n(&word.raw, __ATOMIC_ACQUIRE); }
inline void store32(Word32& word, std::uint32_t value) {
    observeStore(&word, 4);
    __atomic_store_n(&word.raw, value, __ATOMIC_RELEASE);
}
inline void store64(Word64& word, std::uint64_t value) {
    observeStore(&word, 8);
    __atomic_store_n(&word.raw, value, __ATOMIC_RELEASE);
}
inline std::uint64_t loadSplit(const SplitWord64& word) {
    const std::uint64_t low = load32(word.low);
    return std::uint64_t(load32(word.high)) << 32 | low;
}
inline void storeSplit(SplitWord64& word, std::uint64_t value) {
    store32(word.low, static_cast<std::uint32_t>(value));
    store32(word.high, static_cast<std::uint32_t>(value >> 32));
}

// Copies a value of Size bytes (a multiple of 4) between private memory and an 8-byte boundary of shared memory, word
// by word: nothing is promised across words; the caller's version word tells whether the copy is one version.
template <std::size_t Size>
inline void copyOut(void* to, const std::byte* from) {
    static_assert(Size % 4 == 0);
    auto* out = static_cast<std::byte*>(to);
#pragma GCC unroll 32
    for (std::size_t at = 0; at + 8 <= Size; at += 8) {
        const std::uint64_t word = load64(*reinterpret_cast<const Word64*>(from + at));
        std::memcpy(out + at, &word, 8);
    }
    if constexpr (Size % 8 != 0) {
        const std::uint32_t word = load32(*reinterpret_cast<const Word32*>(from + Size - 4));
        std::memcpy(out + Size - 4, &word, 4);
    }
}
template <std::size_t Size>
inline void copyIn(std::byte* to, const void* from) {
    static_assert(Size % 4 == 0);
    const auto* in = static_cast<const std::byte*>(from);
#pragma GCC unroll 32
    for (std::size_t at = 0; at + 8 <= Size; at += 8) {
        std::uint64_t word;
        std::memcpy(&word, in + at, 8);
        store64(*reinterpret_cast<Word64*>(to + at), word);
    }
    if constexpr (Size % 8 != 0) {
        std::uint32_t word;
        std::memcpy(&word, in + Size - 4, 4);
        store32(*reinterpret_cast<Word32*>(to + Size - 4), word);
    }
}

}  // namespace Atomics

// A versioned 64-bit word: a change counter in the low half and what it counts or names in the high half, always
// stored and loaded as one. Comparing whole words notices a change that brought the same value back.
struct Versioned {
    std::uint64_t word;
    constexpr std::uint32_t counter() const { return static_cast<std::uint32_t>(word); }
    constexpr std::uint32_t value() const { return static_cast<std::uint32_t>(word >> 32); }
    // The word that follows this one: the new value, the counter advanced.
    constexpr Versioned next(std::uint32_t newValue, std::uint32_t advance) const {
        return {std::uint64_t(newValue) << 32 | static_cast<std::uint32_t>(counter() + advance)};
    }
    friend constexpr bool operator==(Versioned a, Versioned b) { return a.word == b.word; }
    static Versioned load(const Word64& word) { return {Atomics::load64(word)}; }
    void store(Word64& to) const { Atomics::store64(to, word); }
};

}  // namespace Mem
