// Validator: reads a table's files as they lie and says whether they hang together: every header, the free list, every
// chain in the order of the walk, the counts, and that each entry is announced in the queue. It knows nothing of keys.
//
// It only reads. Whatever the files hold, and while a writer is at work, it neither crashes nor hangs; but what it says
// of a table that changes meanwhile means nothing. Like a reader it must be connected to a writer that lives, or files
// may get shorter under it.
#pragma once

#include <memory>
#include <vector>

#include "Mem/Segment.h"
#include "Memtab/ConquerTable.h"
#include "Memtab/SlotTable.h"

namespace Memtab {

namespace BucketTable {
struct Header;
}

class L2RIB_EXPORT Validator {
 public:
    Validator(Quil::Trace& debug, Quil::String tableName) : debug_(debug), tableName_(std::move(tableName)) {}

    // A wanted fenix of 0 accepts any incarnation, without a format any type. On false the reason says what is wrong,
    // and where() where that was found.
    bool validate(Mem::Directory& directory, FenixId wantedFenix, const SlotTable::Format* expected,
                  Quil::String& reason);

    struct Where {
        Quil::String file;               // the path
        std::uint64_t offset = 0;        // bytes into it
        std::uint32_t slot = endOfList;  // the slot in question, if any
    };
    const Where& where() const { return where_; }

    // Of a sound table.
    std::uint32_t members() const { return occupied_; }
    std::uint32_t numSlots() const { return numSlots_; }

 private:
    struct SlotMarks {
        bool isFree = false;
        bool isEntry = false;
        std::uint32_t notified = 0;   // live records in the queue, outside the corral
        std::uint32_t corralled = 0;  // inside
        std::uint32_t position = 0;   // of the last one
    };

    Quil::String openFiles(Mem::Directory& directory, FenixId wantedFenix, const SlotTable::Format* expected);
    Quil::String doValidate();
    Quil::String readQueue();
    Quil::String walkFreeSlots();
    Quil::String walkOccupiedSlots();
    Quil::String markOccupied(std::uint32_t index);
    Quil::String checkNotifications();

    const SlotTable::Header& slotHeader() const;
    const SlotTable::Slot& slot(std::uint32_t index) const;
    const BucketTable::Header& bucketHeader() const;
    const Mem::Word64& bucketLink(std::uint32_t bucket) const;
    const ConquerTable::Header& queue(std::uint32_t id) const;
    Quil::String atSlot(std::uint32_t index, std::uint64_t offsetInSlot, Quil::String text);
    Quil::String at(const Mem::Segment& file, std::uint64_t offset, Quil::String text);
    Quil::String grewMeanwhile(const Mem::Segment& file);

    Quil::Trace& debug_;
    const Quil::String tableName_;
    std::unique_ptr<Mem::Segment> slots_, buckets_, queues_[2];
    std::uint32_t numSlots_ = 0, numBuckets_ = 0, free_ = 0, occupied_ = 0;
    std::uint32_t slotSize_ = 0;
    std::vector<SlotMarks> marks_;
    Where where_;
};

}  // namespace Memtab
