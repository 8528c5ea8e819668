// Options.h: how a table is sized and how its writer behaves. The map front makes one from what the user mounts with.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>

namespace Memtab {

struct Options {
    std::uint32_t maxSize = 16384;      // entries expected at most; passed by a tenth at a time unless fixedCapacity
    std::uint32_t initialSlots = 0;     // 0: a quarter of maxSize (all of it with fixedCapacity), at least 1
    std::uint32_t expectedReaders = 0;  // with waitForReaders: so many must have connected before anything is dropped
    std::uint32_t maxNotifications =
        0;                         // the queue's cap, where the slowest reader goes; 0: 16 times its first capacity
    bool fixedCapacity = false;    // the table never grows beyond its first size
    bool waitForReaders = false;   // keep every notification until the expected readers are connected
    bool shrinkSlots = false;      // give slots back when most are empty
    bool shrinkBuckets = false;    // likewise buckets
    bool pruneConquer = true;      // drop notifications that every reader has consumed
    bool kickReaders = false;      // wake readers through the kick socket
    bool keepOverRestart = false;  // a restarted writer keeps a valid table
    bool shadowValues = false;     // a shadow keeps values, not only keys

    // The table is born with this many slots and never has fewer.
    std::uint32_t firstSlots() const {
        const std::uint32_t wanted = initialSlots ? initialSlots : fixedCapacity ? maxSize : maxSize / 4;
        return std::max(wanted, 1u);
    }
    // A power of two, so that every bucket splits in two.
    std::uint32_t firstBuckets() const { return std::bit_floor(firstSlots()); }
};

}  // namespace Memtab
