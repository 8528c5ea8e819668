// MountInfo.h: how a table entity is mounted.
#pragma once

#include <map>

#include "Memtab/MemtabMap.h"

namespace QuilMemtab {

using QuilMemtabType = Memtab::Mode;
using enum Memtab::Mode;  // QuilMemtab::reader

struct L2RIB_EXPORT MountInfo {
    QuilMemtabType mode = local;
    bool fixedCapacity = false;   // never grow beyond the first size
    bool waitForReaders = false;  // keep every notification until a reader is connected
    bool shrinkSlots = true;      // give memory back when most of it is unused
    bool shrinkBuckets = true;
    bool pruneConquer = true;                          // drop notifications that every reader has consumed
    bool kickReaders = true;                           // wake readers
    bool keepOverRestart = false;                      // a restarted writer keeps a valid table
    std::map<Quil::String, std::uint32_t> maxEntries;  // by collection name
    bool shadowValues = false;                         // a shadow keeps values, not only keys

    static MountInfo writer(const Quil::String& collection, std::uint32_t maxEntries);
    static MountInfo reader(const Quil::String& collection);
    static MountInfo shadow(const Quil::String& collection, bool keepsValues);

    // For this collection. Throws InvalidInitializeException when it is not named here.
    Memtab::Options options(const Quil::String& collection) const;

    friend bool operator==(const MountInfo&, const MountInfo&) = default;
};

}  // namespace QuilMemtab
