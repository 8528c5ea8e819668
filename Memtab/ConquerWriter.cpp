#include "Memtab/ConquerWriter.h"

#include <algorithm>
#include <bit>
#include <new>

#include "Verro/Exception.h"

namespace Memtab {

using ConquerTable::Header;
using ConquerTable::Record;
using ConquerTable::tombstoneSlot;
using Mem::Versioned;
using Mem::Atomics::load32;
using Mem::Atomics::load64;
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
        const bool isNew = !directory.open(ConquerTable::fileNames[id]);
        try {
            segments_[id] = directory.create(ConquerTable::fileNames[id], ConquerTable::fileSize(capacity_));
        } catch (const Quil::MemoryResourceException& error) {
            throw Quil::MemoryResourceException(cat("ConquerWriter::attachConquer() failed to resize ",
                                                    ConquerTable::fileNames[id], " to ", capacity_,
                                                    " notifications. Reason: ", error.what()));
        }
        table(id).format(fenix, capacity_);
        debug_.log(5, [&] {
            return cat("ConquerWriter::attachConquer() ", isNew ? "to new file " : "re-formatted ",
                       segments_[id]->name());
        });
        table(id).trace(debug_);
    }
    current_ = &table(0);
    currentId_ = position_ = live_ = 0;
    sequence_ = minSeq_ = corralStart_ = corralEnd_ = 0;
    numSlots_ = numSlots;
    conquerPos_.clear();
    growPositions(numSlots);
}

void ConquerWriter::publish(Mem::Directory& directory) {
    for (const char* name : ConquerTable::fileNames) directory.publish(name);
}

bool ConquerWriter::attachExisting(Mem::Directory& directory, FenixId fenix, std::uint32_t numSlots,
                                   Quil::String& reason) {
    for (std::uint32_t id = 0; id < 2; ++id) {
        segments_[id] = directory.open(ConquerTable::fileNames[id], Mem::Directory::For::writing);
        if (!segments_[id]) {
            reason = cat("ConquerWriter::attachConquer() cannot attach to shmem ", ConquerTable::fileNames[id]);
            return false;
        }
        if (!table(id).validate(debug_, segments_[id]->size(), fenix, reason)) return false;
        debug_.log(5, [&] { return cat("ConquerWriter::attachConquer() to existing ", segments_[id]->name()); });
        table(id).trace(debug_);
    }
    currentId_ = Versioned::load(table(0).current).value();
    current_ = &table(currentId_);
    capacity_ = Versioned::load(current().notifications).value();
    initialCapacity_ = std::max(64u, 2 * std::bit_ceil(numSlots));
    position_ = load32(current().currentPos);
    minSeq_ = load64(current().minSeq);
    if (capacity_ == 0 || position_ > capacity_) {
        reason = cat("ConquerWriter::attachConquer() table->currentPos:", position_, " max:", capacity_);
        return false;
    }
    store64(table(1 - currentId_).minSeq, minSeq_);  // a compaction that was cut short had got ahead of it
    sequence_ = position_ == 0 ? minSeq_ : loadSplit(current().record(position_ - 1).sequence);
    corralIs(0, 0);  // no reader is connected yet: who comes compares the whole table
    numSlots_ = numSlots;
    findPositions();
    updateNumReaders();
    return validate(reason);
}

void ConquerWriter::cleanup(Mem::Directory& directory) {
    debug_.log(5, [] { return Quil::String("ConquerWriter::cleanup()"); });
    for (const char* name : ConquerTable::fileNames) directory.remove(name);
}

void ConquerWriter::detach() {
    for (auto& segment : segments_) segment.reset();
    current_ = nullptr;
}

void ConquerWriter::growPositions(std::uint32_t numSlots) {
    const std::uint64_t bytes = std::uint64_t(numSlots) * sizeof conquerPos_[0];
    const std::uint64_t most = std::uint64_t(conquerPos_.max_size()) * sizeof conquerPos_[0];
    if (bytes > most) {
        throw Quil::MemoryResourceException(cat("ConquerPos::resize() ", segments_[0]->name(), " initial size of ",
                                                bytes, " bytes exceeds ", most, " bytes for ", numSlots,
                                                " notifications "));
    }
    try {
        conquerPos_.resize(numSlots, noPosition);
    } catch (const std::bad_alloc&) {
        throw Quil::MemoryResourceException(cat("ConquerPos::resize() ", numSlots, " slots: no memory"));
    }
}

// Outside the corral, if there is one: notes the position of each slot's newest live record, and makes the older ones
// and those of slots that are gone tombstones.
void ConquerWriter::findPositions() {
    conquerPos_.assign(numSlots_, noPosition);
    live_ = 0;
    for (std::uint32_t i = position_; i-- > 0;) {
        Record& record = current().record(i);
        const std::uint32_t slot = load32(record.slot);
        if (slot == tombstoneSlot) continue;
        ++live_;
        const std::uint64_t sequence = loadSplit(record.sequence);
        if (hasCorral() && sequence >= corralStart_ && sequence <= corralEnd_) continue;
        if (slot < numSlots_ && conquerPos_[slot] == noPosition) {
            conquerPos_[slot] = i;
        } else {
            bury(record);
        }
    }
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

// What every connected reader has consumed; without any, everything.
std::uint64_t ConquerWriter::lowestSequence() const {
    return kickSm_ ? kickSm_->lowestSequence() : Mem::WriterKickSm::noReader;
}

std::uint64_t ConquerWriter::prune() {
    if (!options_.pruneConquer) return 0;
    if (waitingForReaders_) {
        debug_.log(5, [] { return Quil::String("ConquerWriter::prune() cannot prune, waiting for readers"); });
        return minSeq_;
    }
    const std::uint64_t lowest = lowestSequence();
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

std::uint32_t ConquerWriter::survivors(std::uint64_t minSeq) {
    std::uint32_t count = live_;
    for (std::uint32_t i = position_; i > 0 && loadSplit(current().record(i - 1).sequence) >= minSeq; --i) {
        count += load32(current().record(i - 1).slot) == tombstoneSlot;
    }
    return count;
}

// Twice the records fit in, and so do they and the notifications to come; halved while a quarter of it would do.
std::uint64_t ConquerWriter::fittingCapacity(std::uint32_t records, std::uint32_t notifications) const {
    std::uint64_t capacity = capacity_;
    const std::uint64_t twice = 2 * std::uint64_t(records), needed = std::uint64_t(records) + notifications;
    while (twice > capacity || needed > capacity) capacity *= 2;
    while (capacity > initialCapacity_ && twice < capacity / 4 && needed <= capacity / 2) capacity /= 2;
    return capacity;
}

// Tombstones that a slow reader holds back may take this much; what is alive always fits.
std::uint64_t ConquerWriter::capacityCap() const {
    const std::uint64_t alive = 4 * std::bit_ceil(std::uint64_t(std::max<std::size_t>(conquerPos_.size(), live_)));
    const std::uint64_t wanted =
        options_.maxNotifications ? options_.maxNotifications : 16 * std::uint64_t(initialCapacity_);
    return std::min<std::uint64_t>(std::max({alive, wanted, std::uint64_t(initialCapacity_)}), maxIndex);
}

// At the cap, whoever holds tombstones back lets go: first the readers that are only expected, then the slowest ones.
std::uint32_t ConquerWriter::chooseCapacity(std::uint64_t& minSeq, std::uint32_t notifications) {
    for (;;) {
        const std::uint64_t capacity = fittingCapacity(survivors(minSeq), notifications);
        // What the queue has already it may keep: a shrink lowers the cap.
        if (capacity <= std::max<std::uint64_t>(capacityCap(), capacity_)) return static_cast<std::uint32_t>(capacity);
        if (options_.pruneConquer && waitingForReaders_) {
            waitingForReaders_ = false;
        } else if (options_.pruneConquer && kickSm_ && kickSm_->dropSlowest()) {
            ++counters_.droppedReaders;
            debug_.log(3, [] { return Quil::String("ConquerWriter::compact() the slowest reader was dropped"); });
            updateNumReaders();
        } else {
            throw Quil::MemoryResourceException(
                cat("ConquerWriter::resize() ", capacity, " notifications exceed ", capacityCap()));
        }
        minSeq = prune();
    }
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
void ConquerWriter::compact(std::uint64_t minSeq, std::uint32_t notifications) {
    const std::uint32_t newCapacity = chooseCapacity(minSeq, notifications);
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
    adjustCorral(numSlots_);
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
        const std::uint32_t slot = load32(from.slot);
        if (slot == tombstoneSlot && sequence < minSeq) continue;
        debug_.log(9, [&] { return cat("ConquerWriter::compact() compacting notif ", i, " to notif ", copied); });
        Record& record = to.record(copied);
        storeSplit(record.sequence, sequence);
        store32(record.slot, slot);
        if (slot < conquerPos_.size() && conquerPos_[slot] == i) conquerPos_[slot] = copied;
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

// Both files carry it.
void ConquerWriter::corralIs(std::uint64_t start, std::uint64_t end) {
    corralStart_ = start;
    corralEnd_ = end;
    for (std::uint32_t id = 0; id < 2; ++id) {
        // ORDER corral, with ConquerReader::view: one that opens has no end yet, one that is cleared no start.
        if (start == 0) store64(table(id).corralStart, start);
        store64(table(id).corralEnd, end);
        if (start != 0) store64(table(id).corralStart, start);
    }
}

bool ConquerWriter::isInOpenCorral(const Record& record) const {
    const std::uint64_t sequence = loadSplit(record.sequence);
    if (!corralIsOpen() || sequence < corralStart_) return false;
    debug_.log(9, [&] { return cat("ConquerWriter::tombstone() ignoring tomb.seq:", sequence); });
    return true;
}

void ConquerWriter::markShrinkStart() {
    corralIs(sequence_ + 1, 0);
    debug_.log(5, [&] { return cat("ConquerWriter::markShrinkStart() corralStart:", corralStart_); });
}

void ConquerWriter::markShrinkEnd() {
    const bool any = corralStart_ <= sequence_;
    corralIs(any ? corralStart_ : 0, any ? sequence_ : 0);
    debug_.log(
        5, [&] { return cat("ConquerWriter::markShrinkEnd() corralStart:", corralStart_, " corralEnd:", corralEnd_); });
}

void ConquerWriter::adjustCorral(std::uint32_t numSlots) {
    numSlots_ = numSlots;
    if (!hasCorral() || corralIsOpen()) return;
    // Someone who has mapped the files and is not yet counted may have seen an entry where it lay before the shrink.
    if (kickSm_ && !kickSm_->allAreWelcomed()) return;
    const std::uint64_t lowest = std::min(lowestSequence(), sequence_);
    if (waitingForReaders_ || lowest < corralStart_) return;
    if (lowest >= corralEnd_) {
        debug_.log(5, [&] { return cat("ConquerWriter::adjustCorral() cleared corralStart:", corralStart_); });
        corralIs(0, 0);
    } else {
        debug_.log(5, [&] {
            return cat("ConquerWriter::adjustCorral() adjusted corralStart from:", corralStart_, " to:", lowest + 1);
        });
        corralIs(lowest + 1, corralEnd_);
    }
    findPositions();
}

void ConquerWriter::updateSequence(const Mem::WriterKickSm::Reader& reader, std::uint64_t before) {
    debug_.log(8, [&] { return cat("ConquerWriter::updateSequence() prevSeq:", before, " reader:", reader.name); });
    debug_.log(8, [&] {
        const char* all = reader.sequence >= corralEnd_ ? " from reader will prune entire corralEnd:"
                                                        : " from reader NOT prune entire corralEnd:";
        return cat("ConquerWriter::updateSequence() updated seq:", reader.sequence, all, corralEnd_);
    });
}

void ConquerWriter::updateNumReaders() {
    const std::uint32_t readers = numReaders();
    for (std::uint32_t id = 0; id < 2; ++id) store32(table(id).numReaders, readers);
    if (!waitingForReaders_ || readers < options_.expectedReaders) return;
    waitingForReaders_ = false;  // for good: who comes back later compares the whole table
    debug_.log(5, [&] { return cat("ConquerWriter::updateNumReaders() waitingForReaders:", waitingForReaders_); });
}

bool ConquerWriter::quiesced() const {
    return !hasCorral() && lowestSequence() >= sequence_ &&
           (!kickSm_ || kickSm_->numReaders() == kickSm_->readers().size());
}

bool ConquerWriter::clientQuiesced(const Quil::String& readerName) const {
    if (!kickSm_ || hasCorral()) return false;
    bool known = false;
    for (const auto& reader : kickSm_->readers()) {
        if (!reader.welcomed || reader.name != readerName) continue;
        if (reader.sequence < sequence_) return false;
        known = true;
    }
    return known;
}

bool ConquerWriter::validate(Quil::String& reason) {
    const Versioned word = Versioned::load(table(0).current);
    if (word.value() > 1 || word.value() != currentId_) {
        reason = cat("ConquerWriter::validate() failed to retrieve currentTable information ", word.value());
    } else if (const std::uint32_t end = load32(current().currentPos); end != position_ || end > capacity_) {
        reason = cat("ConquerWriter::validate() table->currentPos:", end, " expected:", position_, " max:", capacity_);
    } else if (const std::uint64_t other = load64(table(1 - currentId_).minSeq); load64(current().minSeq) < other) {
        reason = cat("ConquerWriter::validate() minSeq:", load64(current().minSeq), " less than minSeq:", other);
    } else {
        reason = recordsFault();
        if (reason.empty()) reason = corralFault();
        if (reason.empty()) reason = positionsFault();
    }
    if (!reason.empty()) debug_.log(1, [&] { return reason; });
    return reason.empty();
}

Quil::String ConquerWriter::recordsFault() {
    std::uint64_t previous = 0;
    for (std::uint32_t i = 0; i < position_; ++i) {
        const std::uint64_t sequence = loadSplit(current().record(i).sequence);
        if (sequence <= previous || sequence > sequence_) {
            return cat("ConquerWriter::validate() pos:", i, " bad order: ", sequence, " prevSeq:", previous);
        }
        previous = sequence;
    }
    return {};
}

Quil::String ConquerWriter::corralFault() {
    const std::uint64_t start = load64(current().corralStart), end = load64(current().corralEnd);
    if (start != corralStart_ || start > sequence_ + 1) {
        return cat("ConquerWriter::validate() bad corralStart:", start, " sequence:", sequence_);
    }
    if (end != corralEnd_ || (end != 0 && (end < start || end > sequence_))) {
        return cat("ConquerWriter::validate() corralEnd:", end, " corralStart:", start, " sequence:", sequence_);
    }
    return {};
}

Quil::String ConquerWriter::positionsFault() {
    std::uint32_t live = 0, duplicates = 0;
    for (std::uint32_t i = 0; i < position_; ++i) {
        const std::uint32_t slot = load32(current().record(i).slot);
        if (slot == tombstoneSlot) continue;
        ++live;
        // While there is a corral, a slot may have a record in it and one behind it.
        const bool isNoted = slot < conquerPos_.size() && conquerPos_[slot] == i;
        duplicates += !isNoted && !hasCorral();
    }
    for (std::uint32_t slot = 0; slot < conquerPos_.size(); ++slot) {
        const std::uint32_t at = conquerPos_[slot];
        if (at == noPosition) continue;
        if (at >= position_ || load32(current().record(at).slot) != slot) {
            return cat("ConquerWriter::validate() conquerPos slotId:", slot, " pos:", at, " end:", position_);
        }
    }
    if (duplicates) return cat("ConquerWriter::validate() duplicate notifications found:", duplicates);
    if (live != live_) {
        return cat("ConquerWriter::validate() unique notifications mismatch, old:", live_, " new:", live);
    }
    return {};
}

bool ConquerWriter::validateFile(FenixId fenix, Quil::String& reason) {
    for (std::uint32_t id = 0; id < 2; ++id) {
        if (table(id).validate(debug_, segments_[id]->size(), fenix, reason)) continue;
        debug_.log(1, [&] {
            return cat("ConquerWriter::validateFile(): ", ConquerTable::fileNames[id], " validation failed");
        });
        return false;
    }
    return true;
}

}  // namespace Memtab
