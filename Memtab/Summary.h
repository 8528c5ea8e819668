// Summary: what the headers of a table's files say at one moment, for tools.
#pragma once

#include <optional>

#include "Mem/Segment.h"
#include "Memtab/SlotTable.h"

namespace Memtab {

struct Summary {
    FenixId fenix = 0;
    Quil::String valueType, classType;
    std::uint32_t valueSize = 0, slotSize = 0;  // bytes
    std::uint32_t maxSlots = 0, numSlots = 0, mostSlots = 0, occupiedSlots = 0;
    std::uint32_t numBuckets = 0;
    std::uint32_t numReaders = 0;  // as the writer last counted them
    std::uint32_t queueFile = 0;   // which of the two is current: 0 or 1
    std::uint32_t notifications = 0, notificationCapacity = 0;
    std::uint64_t sequence = 0, minSeq = 0, corralStart = 0, corralEnd = 0;
    std::uint64_t bytes = 0;  // of all files
};

// Nothing, with a reason, when a header is not valid.
L2RIB_EXPORT std::optional<Summary> summarize(Quil::Trace& debug, Mem::Directory& directory, Quil::String& reason);

}  // namespace Memtab
