#include "Memtab/ConquerWriter.h"

#include <bit>

#include "Verro/Exception.h"

namespace Memtab {

using ConquerTable::Header;
using ConquerTable::Record;
using ConquerTable::tombstoneSlot;
using Mem::Versioned;
using Mem::Atomics::load32;
using Mem::Atomics::loadSplit;
using Mem::Atomics::store32;
using Mem::Atomics::store64;
using Mem::Atomics::storeSplit;
using Quil::cat;

void ConquerWriter::create(Mem::Directory& directory, FenixId fenix, std::uint32_t numSlots) {
    if (numSlots > maxIndex / 2) {
        throw Verro::InvalidInitializeException(
            cat("ConquerWriter::attachConquer() unable to calculate notifications for ", numSlots, " slots"));
    }
    initialCapacity_ = std::max(64u, 2 * std::bit_ceil(numSlots));
    capacity_ = initialCapacity_;
    for (std::uint32_t id = 0; id < 2; ++id) {
        segments_[id] = directory.create(ConquerTable::fileNames[id], ConquerTable::fileSize(capacity_));
        table(id).format(fenix, capacity_);
        debug_.log(5, [&] { return cat("ConquerWriter::attachConquer() to new file ", segments_[id]->name()); });
        table(id).trace(debug_);
    }
    current_ = &table(0);
    currentId_ = position_ = live_ = 0;
    sequence_ = minSeq_ = 0;
    conquerPos_.assign(numSlots, noPosition);
}

void ConquerWriter::publish(Mem::Directory& directory) {
    for (const char* name : ConquerTable::fileNames) directory.publish(name);
}

void ConquerWriter::cleanup(Mem::Directory& directory) {
    debug_.log(5, [] { return Quil::String("ConquerWriter::cleanup()"); });
    for (const char* name : ConquerTable::fileNames) directory.remove(name);
}

void ConquerWriter::detach() {
    for (auto& segment : segments_) segment.reset();
}

void ConquerWriter::throwNoRoom() const {
    throw Verro::CorruptionDetectedException(
        cat("ConquerWriter::notify() conquer index out-of-range, pos:", position_, " max:", capacity_));
}

void ConquerWriter::throwMismatch(std::uint32_t slot, std::uint32_t position) {
    if (position >= capacity_) {
        throw Verro::CorruptionDetectedException(
            cat("ConquerWriter::tombstone() conquer index out-of-range, tomb:", position, " max:", capacity_));
    }
    throw Verro::CorruptionDetectedException(cat("ConquerWriter::tombstone() conquer slot mismatch, slot:", slot,
                                                 " index:", position,
                                                 " found:", load32(current().record(position).slot)));
}

std::uint64_t ConquerWriter::prune() const {
    if (!pruneConquer_) return 0;
    const std::uint64_t lowest = kickSm_ ? kickSm_->lowestSequence() : Mem::WriterKickSm::noReader;
    if (lowest <= minSeq_) {
        debug_.log(5, [&] {
            return cat("ConquerWriter::prune() cannot prune, minSeq:", minSeq_, " lowestSequence:", lowest);
        });
        return minSeq_;
    }
    const std::uint64_t newMinSeq = lowest == Mem::WriterKickSm::noReader ? sequence_ : lowest;
    debug_.log(5, [&] {
        return cat("ConquerWriter::prune() pruning up to minSeq:", newMinSeq, " (old minSeq:", minSeq_,
                   ") current sequence: ", sequence_);
    });
    return newMinSeq;
}

namespace {
bool survives(const Record& record, std::uint64_t minSeq) {
    return load32(record.slot) != tombstoneSlot || loadSplit(record.sequence) >= minSeq;
}
}  // namespace

std::uint32_t ConquerWriter::survivors(std::uint64_t minSeq) {
    std::uint32_t count = live_;
    for (std::uint32_t i = position_; i > 0 && loadSplit(current().record(i - 1).sequence) >= minSeq; --i) {
        count += load32(current().record(i - 1).slot) == tombstoneSlot;
    }
    return count;
}

std::uint32_t ConquerWriter::fittingCapacity(std::uint32_t records) const {
    std::uint64_t capacity = capacity_;
    const std::uint64_t twice = 2 * std::uint64_t(records);
    while (twice > capacity) capacity *= 2;
    while (capacity > initialCapacity_ && twice < capacity / 4) capacity /= 2;
    if (capacity > maxIndex) {
        throw Quil::MemoryResourceException(cat("ConquerWriter::resize() ", capacity, " notifications are too many"));
    }
    return static_cast<std::uint32_t>(capacity);
}

void ConquerWriter::lengthen(std::uint32_t id, std::uint32_t capacity) {
    const std::uint64_t size = ConquerTable::fileSize(capacity);
    if (segments_[id]->size() < size) {
        try {
            segments_[id]->resize(size);
        } catch (const Quil::Exception& error) {
            throw Quil::MemoryResourceException(cat("ConquerWriter::resize() failed to resize ", segments_[id]->name(),
                                                    " to ", capacity, " notifications, needed ", size,
                                                    " bytes. Reason: ", error.what()));
        }
    }
}

// The survivors move to the other file and the queue switches to it with one store: the current file stays untouched
// until then, so the writer may die at any step.
void ConquerWriter::compact(std::uint64_t minSeq) {
    const std::uint32_t newCapacity = fittingCapacity(survivors(minSeq));
    const std::uint32_t otherId = 1 - currentId_, lastPosition = position_;
    lengthen(otherId, newCapacity);
    Header& other = table(otherId);
    if (const auto room = Versioned::load(other.notifications); room.value() != newCapacity) {
        room.next(newCapacity, 1).store(other.notifications);
    }
    const std::uint32_t copied = copySurvivors(other, minSeq);
    store32(other.currentPos, copied);
    store64(other.minSeq, minSeq);
    switchTo(otherId);
    capacity_ = newCapacity;
    position_ = copied;
    minSeq_ = minSeq;
    store64(table(1 - currentId_).minSeq, minSeq);
    ++counters_.compactions;
    debug_.log(4, [&] {
        const auto last = [](Header& header, std::uint32_t end) {
            return end == 0 ? 0 : loadSplit(header.record(end - 1).sequence);
        };
        return cat("Conquer::compact() pruned:", lastPosition - copied, " minSeq:", minSeq, " lastPos: ", lastPosition,
                   " seq[lastPos]:", last(table(1 - currentId_), lastPosition), " copyPos:", copied,
                   " seq[copyPos]:", last(current(), copied));
    });
}

// Copies in ascending sequence and returns the number of records.
std::uint32_t ConquerWriter::copySurvivors(Header& to, std::uint64_t minSeq) {
    std::uint32_t copied = 0;
    std::uint64_t previous = 0;
    for (std::uint32_t i = 0; i < position_; ++i) {
        const Record& from = current().record(i);
        const std::uint64_t sequence = loadSplit(from.sequence);
        if (sequence <= previous) {
            throw Verro::CorruptionDetectedException(
                cat("ConquerWriter::compact() prevNot:", previous, " not in ascending order n.sequence:", sequence));
        }
        previous = sequence;
        if (!survives(from, minSeq)) continue;
        Record& record = to.record(copied);
        const std::uint32_t slot = load32(from.slot);
        storeSplit(record.sequence, sequence);
        store32(record.slot, slot);
        if (slot != tombstoneSlot) conquerPos_[slot] = copied;
        ++copied;
    }
    return copied;
}

void ConquerWriter::switchTo(std::uint32_t id) {
    const Versioned next = Versioned::load(table(0).current).next(id, 1);
    next.store(table(1).current);
    // ORDER switch, with ConquerReader::poll: the other file is complete before conquer.1 names it. A reader that finds
    // this word changed after a record has read bytes of a file that was being rewritten, and starts over.
    next.store(table(0).current);
    currentId_ = id;
    current_ = &table(id);
}

void ConquerWriter::updateNumReaders() {
    const std::uint32_t readers = kickSm_ ? kickSm_->numReaders() : 0;
    for (std::uint32_t id = 0; id < 2; ++id) store32(table(id).numReaders, readers);
}

}  // namespace Memtab
