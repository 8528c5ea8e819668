#include "Memtab/Summary.h"

#include <cstring>

#include "Memtab/BucketTable.h"
#include "Memtab/ConquerTable.h"
#include "Memtab/SlotWriterTable.h"

namespace Memtab {
namespace {

using Mem::Versioned;
using Mem::Atomics::load32;
using Mem::Atomics::load64;

// The header of a file, when it is valid.
template <class Header>
const Header* headerOf(Quil::Trace& debug, Mem::Directory& directory, const char* name,
                       std::unique_ptr<Mem::Segment>& file, Quil::String& reason) {
    file = directory.open(name);
    if (!file) {
        reason = Quil::cat("no file ", name, ", or it is empty");
        return nullptr;
    }
    const auto* header = reinterpret_cast<const Header*>(file->base());
    return header->validate(debug, file->size(), 0, reason) ? header : nullptr;
}

Quil::String nameOf(const char (&field)[SlotTable::Header::nameSize]) { return {field, strnlen(field, sizeof field)}; }

void addQueue(const ConquerTable::Header& header, std::uint64_t fileSize, Summary& s) {
    // No more than is mapped, should the writer be lengthening the file.
    const std::uint64_t mapped = (fileSize - ConquerTable::recordsOffset) / ConquerTable::recordSize;
    s.numReaders = load32(header.numReaders);
    s.notificationCapacity = Versioned::load(header.notifications).value();
    s.notifications = static_cast<std::uint32_t>(
        std::min<std::uint64_t>({load32(header.currentPos), s.notificationCapacity, mapped}));
    s.minSeq = load64(header.minSeq);
    s.corralStart = load64(header.corralStart);
    s.corralEnd = load64(header.corralEnd);
    s.sequence = s.notifications ? Mem::Atomics::loadSplit(header.record(s.notifications - 1).sequence) : s.minSeq;
}

}  // namespace

std::optional<Summary> summarize(Quil::Trace& debug, Mem::Directory& directory, Quil::String& reason) {
    std::unique_ptr<Mem::Segment> files[4];
    const auto* slots = headerOf<SlotTable::Header>(debug, directory, SlotWriterTable::fileName, files[0], reason);
    if (!slots) return std::nullopt;
    const auto* buckets =
        headerOf<BucketTable::Header>(debug, directory, BucketWriterTable::fileName, files[1], reason);
    if (!buckets) return std::nullopt;
    const ConquerTable::Header* queues[2];
    for (std::uint32_t id = 0; id < 2; ++id) {
        queues[id] =
            headerOf<ConquerTable::Header>(debug, directory, ConquerTable::fileNames[id], files[2 + id], reason);
        if (!queues[id]) return std::nullopt;
    }
    Summary s;
    s.fenix = load32(slots->fenix);
    s.valueType = nameOf(slots->valueType);
    s.classType = nameOf(slots->classType);
    s.valueSize = load32(slots->valueSize);
    s.slotSize = load32(slots->slotSize);
    s.maxSlots = load32(slots->maxSlots);
    s.numSlots = Versioned::load(slots->numSlots).value();
    s.mostSlots = load32(slots->mostSlots);
    s.occupiedSlots = load32(slots->occupiedSlots);
    s.numBuckets = Versioned::load(buckets->count).value();
    s.queueFile = ConquerTable::getTable(Versioned::load(queues[0]->current));
    addQueue(*queues[s.queueFile], files[2 + s.queueFile]->size(), s);
    for (const auto& file : files) s.bytes += file->size();
    return s;
}

}  // namespace Memtab
