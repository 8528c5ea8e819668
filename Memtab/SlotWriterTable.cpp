#include "Memtab/SlotWriterTable.h"

#include <algorithm>
#include <bit>
#include <new>

#include "Memtab/Exception.h"
#include "Verro/Exception.h"

namespace Memtab {

using Mem::Versioned;
using Mem::Atomics::load32;
using Mem::Atomics::store32;
using Quil::cat;
using SlotTable::Slot;

SlotWriterTable::SlotWriterTable(Quil::Trace& debug, Quil::String tableName, const Options& options,
                                 SlotTable::Format stored)
    : debug_(debug),
      tableName_(std::move(tableName)),
      maxSlots_(options.maxSize),
      minSlots_(options.firstSlots()),
      fixedCapacity_(options.fixedCapacity),
      shrinkSlots_(options.shrinkSlots),
      stored_(std::move(stored)),
      slotSize_(stored_.slotSize()) {}

void SlotWriterTable::create(Mem::Directory& directory, FenixId fenix) {
    const bool isNew = !directory.open(fileName);
    auto segment = directory.create(fileName, stored_.fileSize(minSlots_));
    new (segment->base()) SlotTable::Header(debug_, minSlots_, maxSlots_, fenix, stored_);
    if (isNew) debug_.log(5, [&] { return cat("SlotWriter::attach() to new file ", segment->name()); });
    segment_ = std::move(segment);
    numSlots_ = minSlots_;
    bind();
    addFreeSlots(0, numSlots_);
    store32(header().freeSlots, 0);
    findShrinkThreshold();
}

bool SlotWriterTable::attachExisting(Mem::Directory& directory, FenixId fenix, Quil::String& reason) {
    segment_ = directory.open(fileName, Mem::Directory::For::writing);
    if (!segment_) {
        reason = cat("no file ", fileName);
        return false;
    }
    bind();
    if (!header().validate(debug_, segment_->size(), fenix, reason)) return false;
    reason = SlotTable::typeFault("SlotWriter::attach()", header(), stored_);
    numSlots_ = Versioned::load(header().numSlots).value();
    if (reason.empty() && fixedCapacity_ && numSlots_ != minSlots_) {
        reason = cat("SlotWriter::attach() wanted capacity:", minSlots_,
                     " for fixed-size table, but existing file has capacity:", numSlots_);
    }
    if (!reason.empty()) return false;
    header().maxSlotsIs(maxSlots_);
    header().trace(debug_);
    findShrinkThreshold();
    return true;
}

void SlotWriterTable::bind() {
    header_ = reinterpret_cast<SlotTable::Header*>(segment_->base());
    slots_ = segment_->base() + stored_.headerSize();
}

void SlotWriterTable::outOfRange(std::uint32_t index) const {
    throw Verro::CorruptionDetectedException(
        cat("SlotWriter::Slots::operator[] out-of-range index: ", index, " max:", numSlots_));
}

void SlotWriterTable::growOrThrow() {
    if (grow()) return;
    throw TableFullException(cat("SlotWriter::alloc() Memtab table full (occupancy:", occupiedSlots(),
                                 " tableSize:", numSlots_, ") ", tableName_));
}

// Doubles up to the expected maximum, then goes on by a tenth: times 1.1 in single precision, exact, rounded up.
std::uint32_t SlotWriterTable::grownSize() const {
    const std::uint64_t n = numSlots_;
    if (n < maxSlots_) return static_cast<std::uint32_t>(std::min<std::uint64_t>(2 * n, maxSlots_));
    // 1.1f is 9227469 / 2^23.
    const std::uint64_t grown = (n * 9227469u + (std::uint64_t(1) << 23) - 1) >> 23;
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(grown, maxIndex));
}

bool SlotWriterTable::grow() {
    const std::uint32_t before = numSlots_;
    if (occupiedSlots() != before) {
        throw Verro::CorruptionDetectedException(cat("SlotWriter::grow() the slot table is full but numSlots: ", before,
                                                     " and occupiedSlots: ", occupiedSlots(), " are not equal"));
    }
    const std::uint32_t after = grownSize();
    if (fixedCapacity_ || after == before) return false;
    // Slots that a shrink left behind in the file go on counting: readers may remember what they last saw there.
    const std::uint32_t known = slotsInFile();
    resize(after);
    for (std::uint32_t i = std::max(before, known); i < after; ++i) {
        SlotTable::initialize(*reinterpret_cast<Slot*>(slots_ + std::size_t(i) * slotSize_), stored_);
    }
    numSlots_ = after;
    addFreeSlots(before, after);
    if (load32(header().mostSlots) < after) store32(header().mostSlots, after);
    // ORDER slots, with SlotReaderTable::readCount: the file has grown and its new slots are whole before the count
    // says so. A reader that mapped between the steps would read past the end.
    Versioned::load(header().numSlots).next(after, 1).store(header().numSlots);
    store32(header().freeSlots, before);
    findShrinkThreshold();
    ++counters_.grows;
    debug_.log(5, [&] { return cat("SlotWriter::grow() ", tableName_, " from ", before, " to ", after, " slots"); });
    return true;
}

void SlotWriterTable::resize(std::uint32_t numSlots) {
    if (numSlots > maxSlots_) {
        debug_.log(5, [&] { return cat("SlotWriter::resize() overflowing by ", numSlots - maxSlots_, " slots"); });
    }
    const std::byte* before = segment_->base();
    const std::uint64_t size = stored_.fileSize(numSlots);
    if (size <= segment_->size()) return;  // a shrink left the file that long
    try {
        segment_->resize(size);
    } catch (const Quil::Exception& error) {
        throw Quil::MemoryResourceException(cat("SlotWriter::resize() failed to resize ", segment_->name(), " from ",
                                                numSlots_, " to ", numSlots, " slots, needed ", size,
                                                " bytes. Reason: ", error.what()));
    }
    bind();
    if (segment_->base() != before) {
        debug_.log(5, [&] {
            return cat("SlotWriter::resize() remap base address changed from ",
                       Quil::hex(reinterpret_cast<std::uintptr_t>(before)), " to ",
                       Quil::hex(reinterpret_cast<std::uintptr_t>(segment_->base())));
        });
    }
}

void SlotWriterTable::addFreeSlots(std::uint32_t start, std::uint32_t end) {
    if (load32(header().freeSlots) != endOfList) {
        throw Verro::CorruptionDetectedException("SlotWriterTable::addFreeSlots() free-list is not empty");
    }
    if (start >= end) {
        throw Verro::CorruptionDetectedException(
            cat("SlotWriterTable::addFreeSlots() bad index range, start: ", start, " end: ", end));
    }
    for (std::uint32_t i = start; i < end; ++i) {
        Mem::Word64& link = (*this)[i].link;
        Versioned::load(link).next(i + 1 < end ? i + 1 : endOfList, linkStep).store(link);
    }
}

std::uint32_t SlotWriterTable::slotsInFile() const {
    return static_cast<std::uint32_t>((segment_->size() - stored_.headerSize()) / slotSize_);
}

// The largest power of two strictly below the number of slots.
void SlotWriterTable::findShrinkThreshold() {
    const bool may = shrinkSlots_ && !fixedCapacity_ && numSlots_ > minSlots_;
    shrinkThreshold_ = may ? std::bit_floor(numSlots_ - 1) : 0;
    debug_.log(5, [&] { return cat("SlotWriter::shrinkThreshold(): shrinkThreshold_:", shrinkThreshold_); });
}

std::uint32_t SlotWriterTable::shrinkTarget() const { return std::max(minSlots_, 4 * std::bit_floor(occupiedSlots())); }

void SlotWriterTable::purgeFreeSlots(std::uint32_t target) {
    std::uint32_t head = endOfList, last = endOfList, steps = 0;
    const auto follow = [&](std::uint32_t slot) {  // the slot comes next on the list
        if (last == endOfList) {
            head = slot;
        } else if (Versioned::load((*this)[last].link).value() != slot) {
            Mem::Word64& link = (*this)[last].link;
            Versioned::load(link).next(slot, linkStep).store(link);
        }
        last = slot;
    };
    for (std::uint32_t slot = load32(header().freeSlots); slot != endOfList;) {
        if (++steps > numSlots_) {
            throw Verro::CorruptionDetectedException("SlotWriter::purgeFreeSlots() free-list cycle detected");
        }
        const std::uint32_t next = Versioned::load((*this)[slot].link).value();
        if (slot < target) follow(slot);
        slot = next;
    }
    follow(endOfList);
    store32(header().freeSlots, head);
}

std::uint32_t SlotWriterTable::takeLower(std::uint32_t from) {
    const std::uint32_t to = load32(header().freeSlots);
    if (to == endOfList) {
        throw Verro::CorruptionDetectedException(cat("SlotWriter::move() not valid toSlotId:", to));
    }
    if (to >= from) {
        throw Verro::CorruptionDetectedException(
            cat("SlotWriter::move() should always move entries to lower section fromSlotId:", from, " toSlotId:", to));
    }
    store32(header().freeSlots, Versioned::load((*this)[to].link).value());
    return to;
}

void SlotWriterTable::publishShrunk(std::uint32_t target) {
    Versioned::load(header().numSlots).next(target, 1).store(header().numSlots);
    numSlots_ = target;
    findShrinkThreshold();
    ++counters_.shrinks;
    debug_.log(5, [&] { return cat("SlotWriter::shrink() newNumSlots:", target); });
}

void SlotWriterTable::shorten() {
    segment_->resize(stored_.fileSize(numSlots_));
    bind();
}

}  // namespace Memtab
