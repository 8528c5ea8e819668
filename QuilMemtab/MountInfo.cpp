#include "QuilMemtab/MountInfo.h"

namespace QuilMemtab {
namespace {

MountInfo make(QuilMemtabType mode, const Quil::String& collection, std::uint32_t maxEntries) {
    MountInfo info;
    info.mode = mode;
    info.maxEntries[collection] = maxEntries;
    return info;
}

}  // namespace

MountInfo MountInfo::writer(const Quil::String& collection, std::uint32_t maxEntries) {
    return make(Memtab::Mode::writer, collection, maxEntries);
}

MountInfo MountInfo::reader(const Quil::String& collection) { return make(Memtab::Mode::reader, collection, 0); }

MountInfo MountInfo::shadow(const Quil::String& collection, bool keepsValues) {
    MountInfo info = make(Memtab::Mode::shadow, collection, 0);
    info.shadowValues = keepsValues;
    return info;
}

Memtab::Options MountInfo::options(const Quil::String& collection) const {
    const auto found = maxEntries.find(collection);
    if (found == maxEntries.end()) {
        throw Verro::InvalidInitializeException(Quil::cat("MountInfo has no entry for collection ", collection));
    }
    Memtab::Options options;
    options.maxSize = found->second;
    options.fixedCapacity = fixedCapacity;
    options.waitForReaders = waitForReaders;
    options.expectedReaders = waitForReaders ? 1 : 0;
    options.shrinkSlots = shrinkSlots;
    options.shrinkBuckets = shrinkBuckets;
    options.pruneConquer = pruneConquer;
    options.kickReaders = kickReaders;
    options.keepOverRestart = keepOverRestart;
    options.shadowValues = shadowValues;
    return options;
}

}  // namespace QuilMemtab
