// SlotReaderTable: a reader's side of the slot file: its mapping and how many slots that covers.
#pragma once

#include <memory>

#include "Mem/Segment.h"
#include "Memtab/SlotTable.h"

namespace Memtab {

class L2RIB_EXPORT SlotReaderTable {
 public:
    // Maps the file for reading when it is valid, of this incarnation, and stores what this reader expects.
    bool attach(Quil::Trace& debug, Mem::Directory& directory, FenixId fenix, const SlotTable::Format& expected,
                Quil::String& reason);

    std::uint32_t numSlots() const { return numSlots_; }  // that may be touched
    std::uint32_t countCounter() const { return count_.counter(); }
    const SlotTable::Slot& spare() const { return header().spare; }
    // Requires: index below numSlots().
    const SlotTable::Slot& slot(std::uint32_t index, std::size_t slotSize) const {
        return *reinterpret_cast<const SlotTable::Slot*>(slots_ + index * slotSize);
    }
    // Whether the numSlots word differs from the one this mapping was made for.
    bool isStale() const { return !(Mem::Versioned::load(*countWord_) == count_); }
    // Remaps when it is stale; returns whether it was.
    bool checkResize();

 private:
    void readCount();
    const SlotTable::Header& header() const { return *reinterpret_cast<const SlotTable::Header*>(segment_->base()); }
    std::unique_ptr<Mem::Segment> segment_;
    std::uint64_t headerSize_ = 0;
    std::uint32_t slotSize_ = 0;
    const Mem::Word64* countWord_ = nullptr;
    const std::byte* slots_ = nullptr;
    Mem::Versioned count_{0};
    std::uint32_t numSlots_ = 0;
};

}  // namespace Memtab
