// SlotWriterTable: the writer's side of the slot file: which slots are free, and how many there are.
//
// Owner     One MemtabWriter.
// Lifetime  References to slots are good until grow(); hold the index, or a Mem::AutoMemMove.
//
// Invariants between two operations of the writer
//  S1  A slot is on exactly one list: the chain of one bucket, or the free list.
//  S2  occupiedSlots plus the length of the free list is numSlots.
//  S3  The file is never shorter than numSlots says: it grows before the count.
#pragma once

#include <memory>

#include "Mem/Segment.h"
#include "Memtab/Options.h"
#include "Memtab/SlotTable.h"
#include "Verro/Hash.h"

namespace Memtab {

class L2RIB_EXPORT SlotWriterTable {
 public:
    static constexpr const char* fileName = "slots";

    SlotWriterTable(Quil::Trace& debug, Quil::String tableName, const Options& options, SlotTable::Format stored);

    // A fresh file with every slot on the free list; it has its name only after publish().
    void create(Mem::Directory& directory, FenixId fenix);
    // Goes on with the file that is there. False with a reason when it is not sound, or of another kind.
    bool attachExisting(Mem::Directory& directory, FenixId fenix, Quil::String& reason);
    void detach() { segment_.reset(); }

    Mem::Segment& segment() { return *segment_; }
    std::uint32_t numSlots() const { return numSlots_; }
    std::uint32_t minSlots() const { return minSlots_; }
    std::uint32_t occupiedSlots() const { return Mem::Atomics::load32(header().occupiedSlots); }
    const SlotTable::Format& format() const { return stored_; }
    SlotTable::Slot& spare() { return header().spare; }
    // Raises corruption when out of range.
    SlotTable::Slot& operator[](std::uint32_t index) {
        if (index >= numSlots_) [[unlikely]]
            outOfRange(index);
        return *reinterpret_cast<SlotTable::Slot*>(slots_ + std::size_t(index) * slotSize_);
    }

    // How many slots there will be after the next alloc().
    std::uint32_t slotsAfterAlloc() const {
        return Mem::Atomics::load32(header().freeSlots) == endOfList && !fixedCapacity_ ? grownSize() : numSlots_;
    }
    // Takes a slot from the free list for an entry of this hash. May grow the file.
    // Throws TableFullException when it cannot; nothing was changed.
    std::uint32_t alloc(std::uint32_t hash) {
        if (Mem::Atomics::load32(header().freeSlots) == endOfList) [[unlikely]]
            growOrThrow();
        const std::uint32_t index = Mem::Atomics::load32(header().freeSlots);
        SlotTable::Slot& slot = (*this)[index];
        // Readers discard a slot that lacks OCCUPIED, so this may stand before the value does.
        Mem::Atomics::store32(slot.rhash, Verro::Util::reverse(hash));
        Mem::Atomics::store32(header().freeSlots, Mem::Versioned::load(slot.link).value());
        Mem::Atomics::store32(header().occupiedSlots, occupiedSlots() + 1);
        ++counters_.allocs;
        return index;
    }
    // Makes sure that alloc() will find a slot, and says which. May grow the file, and fails as alloc() does.
    std::uint32_t reserve() {
        if (Mem::Atomics::load32(header().freeSlots) == endOfList) growOrThrow();
        return Mem::Atomics::load32(header().freeSlots);
    }
    // Gives back a slot that no chain holds any more.
    void free(std::uint32_t index) {
        SlotTable::Slot& slot = (*this)[index];
        Mem::Atomics::store32(slot.state, Mem::Atomics::load32(slot.state) & ~occupied);
        Mem::Versioned::load(slot.link).next(Mem::Atomics::load32(header().freeSlots), linkStep).store(slot.link);
        Mem::Atomics::store32(header().freeSlots, index);
        Mem::Atomics::store32(header().occupiedSlots, occupiedSlots() - 1);
        ++counters_.removes;
    }

    // Below half of this many entries the table is to shrink; 0: it never shrinks.
    std::uint32_t shrinkThreshold() const { return shrinkThreshold_; }
    // The size that fits the entries there are.
    std::uint32_t shrinkTarget() const;
    // The steps of a shrink, in this order. The free list then holds only slots below the target ...
    void purgeFreeSlots(std::uint32_t target);
    // ... each entry beyond moves to one of them: takes it from the list, for an entry that stands in the slot `from`
    // ...
    std::uint32_t takeLower(std::uint32_t from);
    // ... and the count says so. The file keeps its length until shorten().
    void publishShrunk(std::uint32_t target);

    // Whether the file is longer than its slots need; shorten() makes it fit. Nobody may have more slots mapped.
    bool isTooLong() const { return segment_ && segment_->size() > stored_.fileSize(numSlots_); }
    void shorten();
    std::uint32_t countCounter() const { return Mem::Versioned::load(header().numSlots).counter(); }

    struct Counters {
        std::uint64_t shrinks = 0;
        std::uint64_t grows = 0;
        std::uint64_t allocs = 0;
        std::uint64_t removes = 0;
    };
    const Counters& counters() const { return counters_; }

 private:
    void growOrThrow();
    void findShrinkThreshold();
    std::uint32_t slotsInFile() const;
    bool grow();
    void resize(std::uint32_t numSlots);
    void addFreeSlots(std::uint32_t start, std::uint32_t end);
    std::uint32_t grownSize() const;
    void bind();  // after the mapping moved
    [[noreturn]] void outOfRange(std::uint32_t index) const;
    SlotTable::Header& header() const { return *header_; }

    Quil::Trace& debug_;
    const Quil::String tableName_;  // for messages
    const std::uint32_t maxSlots_;  // entries expected at most
    const std::uint32_t minSlots_;  // the initial size
    const bool fixedCapacity_;
    const bool shrinkSlots_;
    const SlotTable::Format stored_;
    const std::size_t slotSize_;  // bytes
    std::unique_ptr<Mem::Segment> segment_;
    SlotTable::Header* header_ = nullptr;  // in the mapping
    std::byte* slots_ = nullptr;           // slot 0, likewise
    std::uint32_t numSlots_ = 0;           // equals the header's count between operations
    std::uint32_t shrinkThreshold_ = 0;
    Counters counters_;
};

}  // namespace Memtab
