// Records.h: the records that are measured, and the least with which one process shares them with another.
#pragma once

#include "L2Rib/HostOutput.h"
#include "Mem/Atomics.h"

namespace bench {

using Key = Bridging::MacVlanPair;
using Value = L2Rib::HostOutput::Wrapper;

struct Entry {
    std::uint32_t number;
    Key key;
};

inline Entry entryOf(std::uint32_t number) {
    return {number, Key(Lanx::EthAddr::fromNumber(0x020000000000ULL + number), Bridging::VlanId(10))};
}

inline Value valueOf(const Entry& entry, std::uint32_t generation) {
    L2Rib::Host host(entry.key);
    host.seqNoIs(Keel::Seqno32(generation));
    L2Rib::HostAndSource record(entry.key);
    record.hostIs(host);
    record.sourceIs(L2Rib::sourceBgp);
    return Value(record);
}

// Keeps what is read alive.
inline volatile std::uint64_t consumed;
inline void consume(const Value& value) { consumed = consumed + value.value().source(); }

inline void storeVersioned(Mem::Word32& word, std::byte* to, const Value& value) {
    const std::uint32_t version = Mem::Atomics::load32(word);
    Mem::Atomics::store32(word, version + 1);
    Mem::Atomics::copyIn<sizeof(Value)>(to, &value);
    Mem::Atomics::store32(word, version + 2);
}
inline void loadVersioned(const Mem::Word32& word, const std::byte* from, Value& out) {
    for (;;) {
        const std::uint32_t version = Mem::Atomics::load32(word);
        Mem::Atomics::copyOut<sizeof(Value)>(&out, from);
        if (Mem::Atomics::load32(word) == version && (version & 1) == 0) return;
    }
}

}  // namespace bench
