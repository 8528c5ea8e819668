#include "Memtab/Validator.h"

#include <algorithm>

#include "Memtab/BucketTable.h"
#include "Memtab/SlotWriterTable.h"
#include "Quil/Exception.h"
#include "Verro/Hash.h"

namespace Memtab {

using ConquerTable::tombstoneSlot;
using Mem::Versioned;
using Mem::Atomics::load32;
using Mem::Atomics::load64;
using Mem::Atomics::loadSplit;
using Quil::cat;
using Quil::hex;
using Quil::String;

const SlotTable::Header& Validator::slotHeader() const {
    return *reinterpret_cast<const SlotTable::Header*>(slots_->base());
}
const SlotTable::Slot& Validator::slot(std::uint32_t index) const {
    return *reinterpret_cast<const SlotTable::Slot*>(slots_->base() + 192 + slotSize_ * (std::uint64_t(index) + 1));
}
const BucketTable::Header& Validator::bucketHeader() const {
    return *reinterpret_cast<const BucketTable::Header*>(buckets_->base());
}
const Mem::Word64& Validator::bucketLink(std::uint32_t bucket) const {
    return reinterpret_cast<const Mem::Word64*>(buckets_->base() + 64)[bucket];
}
const ConquerTable::Header& Validator::queue(std::uint32_t id) const {
    return *reinterpret_cast<const ConquerTable::Header*>(queues_[id]->base());
}

String Validator::at(const Mem::Segment& file, std::uint64_t offset, String text) {
    where_ = {file.name(), offset};
    return text;
}
String Validator::atSlot(std::uint32_t index, std::uint64_t offsetInSlot, String text) {
    where_ = {slots_->name(), 192 + slotSize_ * (std::uint64_t(index) + 1) + offsetInSlot, index};
    return text;
}

String Validator::grewMeanwhile(const Mem::Segment& file) {
    return at(file, 0, cat("Validator::validate() ", file.name(), " has grown since it was mapped"));
}

bool Validator::validate(Mem::Directory& directory, FenixId wantedFenix, const SlotTable::Format* expected,
                         String& reason) {
    where_ = {};
    try {
        reason = openFiles(directory, wantedFenix, expected);
        if (reason.empty()) reason = doValidate();
    } catch (const Quil::Exception& error) {
        reason = cat("Validator::validate caught: ", error.what());
    }
    if (reason.empty()) return true;
    reason = cat("Validator::validate() Memtab ", tableName_, " validation failed: ", reason);
    debug_.log(1, [&] { return reason; });
    return false;
}

String Validator::openFiles(Mem::Directory& directory, FenixId wantedFenix, const SlotTable::Format* expected) {
    const auto open = [&](std::unique_ptr<Mem::Segment>& segment, const char* name) {
        segment = directory.open(name);
        if (!segment) where_.file = name;
        return segment ? String() : cat("no file ", name, ", or it is empty");
    };
    String reason = open(slots_, SlotWriterTable::fileName);
    if (reason.empty() && !slotHeader().validate(debug_, slots_->size(), wantedFenix, reason)) at(*slots_, 0, {});
    if (reason.empty() && expected) reason = SlotTable::typeFault("Validator::validate()", slotHeader(), *expected);
    if (!reason.empty()) return reason;
    slotSize_ = load32(slotHeader().slotSize);
    numSlots_ = Versioned::load(slotHeader().numSlots).value();
    if (slotSize_ < 16 || slotSize_ % 8 != 0) {
        return at(*slots_, 152, cat("Validator::validate() bad slotSize: ", slotSize_));
    }
    if (192 + slotSize_ * (std::uint64_t(numSlots_) + 1) > slots_->size()) return grewMeanwhile(*slots_);
    reason = open(buckets_, BucketWriterTable::fileName);
    if (reason.empty() && !bucketHeader().validate(debug_, buckets_->size(), wantedFenix, reason)) at(*buckets_, 0, {});
    if (!reason.empty()) return reason;
    numBuckets_ = Versioned::load(bucketHeader().count).value();
    if (BucketTable::fileSize(numBuckets_) > buckets_->size()) return grewMeanwhile(*buckets_);
    for (std::uint32_t id = 0; id < 2 && reason.empty(); ++id) {
        reason = open(queues_[id], ConquerTable::fileNames[id]);
        if (reason.empty() && !queue(id).validate(debug_, queues_[id]->size(), wantedFenix, reason)) {
            at(*queues_[id], 0, {});
        }
    }
    return reason;
}

String Validator::doValidate() {
    marks_.assign(numSlots_, {});
    String reason = readQueue();
    if (reason.empty()) reason = walkFreeSlots();
    if (reason.empty()) reason = walkOccupiedSlots();
    if (!reason.empty()) return reason;
    if (std::uint64_t(free_) + occupied_ != numSlots_) {
        return at(*slots_, 168,
                  cat("Validator::doValidate() freeSlots: ", free_, " and occupiedSlots: ", occupied_,
                      " do not add up to numSlots: ", numSlots_));
    }
    return checkNotifications();
}

// Marks which slots are announced, and where.
String Validator::readQueue() {
    const std::uint32_t id = ConquerTable::getTable(Versioned::load(queue(0).current));
    const ConquerTable::Header& header = queue(id);
    const std::uint32_t end = load32(header.currentPos), capacity = Versioned::load(header.notifications).value();
    if (end > capacity) {
        return at(*queues_[id], 64, cat("Validator::doValidate() conquer pos:", end, " max:", capacity));
    }
    if (ConquerTable::fileSize(end) > queues_[id]->size()) return grewMeanwhile(*queues_[id]);
    const std::uint64_t corralStart = load64(header.corralStart), corralEnd = load64(header.corralEnd);
    std::uint64_t previous = 0;
    for (std::uint32_t i = 0; i < end; ++i) {
        const std::uint64_t sequence = loadSplit(header.record(i).sequence);
        const std::uint64_t offset = ConquerTable::recordsOffset + ConquerTable::recordSize * i;
        if (sequence <= previous) {
            return at(*queues_[id], offset,
                      cat("Validator::doValidate() conquer pos:", i, " bad order: ", sequence, " prevSeq:", previous));
        }
        previous = sequence;
        const std::uint32_t named = load32(header.record(i).slot);
        if (named == tombstoneSlot || named >= numSlots_) continue;  // a slot that a shrink has taken away
        const bool inCorral = corralStart != 0 && sequence >= corralStart && (corralEnd == 0 || sequence <= corralEnd);
        ++(inCorral ? marks_[named].corralled : marks_[named].notified);
        marks_[named].position = i;
    }
    return {};
}

String Validator::walkFreeSlots() {
    debug_.log(5, [] { return String("Validator::walkFreeSlots() starting"); });
    free_ = 0;
    where_ = {slots_->name(), 172};  // of the link under the cursor: the head of the list
    for (std::uint32_t index = load32(slotHeader().freeSlots); index != endOfList;) {
        if (index >= numSlots_) {
            return cat("Validator::walkFreeSlots() corrupted free slot detected with out of bound index: ", index);
        }
        if (marks_[index].isFree) return cat("Validator::walkFreeSlots() duplicate freeSlot detected: ", index);
        if (load32(slot(index).state) & (occupied | lookaside)) {
            return atSlot(index, 8, cat("Validator::walkFreeSlots() corrupted free slot not marked as empty: ", index));
        }
        marks_[index].isFree = true;
        ++free_;
        atSlot(index, 0, {});
        index = Versioned::load(slot(index).link).value();
    }
    where_ = {};
    return {};
}

String Validator::walkOccupiedSlots() {
    debug_.log(5, [] { return String("Validator::walkOccupiedSlots() starting"); });
    const std::uint32_t expected = load32(slotHeader().occupiedSlots), mask = BucketTable::rhashMask(numBuckets_);
    std::uint32_t bucket = 0, previous = 0;
    occupied_ = 0;
    where_ = {buckets_->name(), 64};
    for (const Mem::Word64* link = &bucketLink(0);;) {
        const std::uint32_t next = Versioned::load(*link).value();
        if (next & endOfChain) {
            const std::uint32_t wanted = BucketTable::endNaming(bucket, numBuckets_);
            if (next != wanted) {
                return cat("Validator::walkOccupiedSlots() bad end of bucket:", bucket, " found: ", hex(next),
                           " wanted: ", hex(wanted));
            }
            if (next == endOfList) break;
            bucket = next & ~endOfChain;
            link = &bucketLink(bucket);
            where_ = {buckets_->name(), 64 + std::uint64_t(bucket) * 8};
            continue;
        }
        if (next >= numSlots_) {
            return cat("Validator::walkOccupiedSlots() slot out of range: ", next, " numSlots: ", numSlots_);
        }
        if (String reason = markOccupied(next); !reason.empty()) return reason;
        if (++occupied_ > expected) {
            return at(*slots_, 168,
                      cat("Validator::walkOccupiedSlots() walkedSlots:", occupied_,
                          " is greater than header->occupiedSlots:", expected));
        }
        const std::uint32_t rhash = load32(slot(next).rhash);
        if (((rhash ^ Verro::Util::reverse(bucket)) & mask) != 0 || (occupied_ > 1 && rhash < previous)) {
            return atSlot(next, 12,
                          cat("Validator::walkOccupiedSlots() slot: ", next, " out of order, rhash: ", hex(rhash),
                              " previous: ", hex(previous), " bucket: ", bucket));
        }
        previous = rhash;
        atSlot(next, 0, {});
        link = &slot(next).link;
    }
    if (occupied_ != expected) {
        return at(*slots_, 168,
                  cat("Validator::walkOccupiedSlots() mismatch header->occupiedSlots:", expected,
                      " walkedSlots:", occupied_));
    }
    where_ = {};
    return {};
}

String Validator::markOccupied(std::uint32_t index) {
    SlotMarks& marks = marks_[index];
    const std::uint32_t state = load32(slot(index).state);
    if (marks.isEntry || marks.isFree) return cat("Validator::markOccupied() duplicate slot: ", index);
    if (!(state & occupied)) {
        return atSlot(index, 8,
                      cat("Validator::markOccupied() missing OCCUPIED bit: 0x", hex(state), " slot: ", index));
    }
    if (state & lookaside) {
        return atSlot(index, 8, cat("Validator::markOccupied() stuck LOOKASIDE bit: 0x", hex(state), " slot: ", index));
    }
    if (marks.notified + marks.corralled == 0) {
        return atSlot(index, 0, cat("Validator::markOccupied() no notification in conquer queue, slot: ", index));
    }
    marks.isEntry = true;
    return {};
}

// No slot is announced twice, but for once in the corral and once behind it.
String Validator::checkNotifications() {
    const std::uint32_t id = ConquerTable::getTable(Versioned::load(queue(0).current));
    for (std::uint32_t index = 0; index < numSlots_; ++index) {
        const SlotMarks& marks = marks_[index];
        if (marks.notified <= 1 && marks.corralled <= 1) continue;
        const std::uint64_t offset = ConquerTable::recordsOffset + ConquerTable::recordSize * marks.position;
        where_ = {queues_[id]->name(), offset, index};
        return cat("Validator::doValidate() bad slotCount:", marks.notified, " corral pos:", marks.corralled,
                   marks.isEntry ? " occupied slot:" : " free slot:", index, " conquer pos:", marks.position);
    }
    return {};
}

}  // namespace Memtab
