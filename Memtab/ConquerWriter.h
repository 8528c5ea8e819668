// ConquerWriter: the writer's side of the notification queue.
//
// The queue never loses a change: every slot's latest notification stays in it as a live record; only tombstones
// (records made obsolete by a later one of the same slot) are dropped, when every connected reader has passed them.
//
// Invariant: a slot has at most one live record, and conquerPos_ points at it.
#pragma once

#include <memory>
#include <vector>

#include "Mem/Segment.h"
#include "Mem/WriterKickSm.h"
#include "Memtab/ConquerTable.h"
#include "Memtab/Options.h"

namespace Memtab {

class L2RIB_EXPORT ConquerWriter {
 public:
    ConquerWriter(Quil::Trace& debug, const Options& options) : debug_(debug), pruneConquer_(options.pruneConquer) {}

    // Two fresh files for a table of so many slots; they have their names only after publish().
    void create(Mem::Directory& directory, FenixId fenix, std::uint32_t numSlots);
    void publish(Mem::Directory& directory);
    void cleanup(Mem::Directory& directory);
    void detach();
    // Who reads. Null for a table that nobody else sees.
    void kickSmIs(Mem::WriterKickSm* kickSm) { kickSm_ = kickSm; }

    // Makes room for one more notification of a slot below numSlots, so that notify() cannot fail for want of memory.
    void reserve(std::uint32_t numSlots) {
        if (numSlots > conquerPos_.size()) [[unlikely]]
            conquerPos_.resize(numSlots, noPosition);
        if (position_ >= capacity_) [[unlikely]]
            compact(prune());
    }
    // A notification of the slot follows soon: asks for the memory it will touch.
    void prefetch(std::uint32_t slot) {
        if (slot >= conquerPos_.size() || conquerPos_[slot] >= capacity_) return;
        __builtin_prefetch(&current().record(conquerPos_[slot]), 1);
    }
    // The slot changed: it was written, removed or moved.
    void notify(std::uint32_t slot) {
        if (position_ >= capacity_) [[unlikely]]
            compact(prune());
        tombstone(slot);
        append(slot);
    }
    // Makes the slot's live record obsolete; whether there was one.
    bool tombstone(std::uint32_t slot) {
        const std::uint32_t position = slot < conquerPos_.size() ? conquerPos_[slot] : noPosition;
        if (position == noPosition) {
            debug_.log(9, [&] { return Quil::cat("ConquerWriter::tombstone() slot:", slot, " not in conquer"); });
            return false;
        }
        ConquerTable::Record& record = current().record(position);
        if (position >= capacity_ || Mem::Atomics::load32(record.slot) != slot) [[unlikely]]
            throwMismatch(slot, position);
        debug_.log(9, [&] {
            return Quil::cat("ConquerWriter::tombstone() tombstoning ", slot,
                             " with sequence:", Mem::Atomics::loadSplit(record.sequence));
        });
        Mem::Atomics::store32(record.slot, ConquerTable::tombstoneSlot);
        conquerPos_[slot] = noPosition;
        --live_;
        ++counters_.tombstones;
        return true;
    }
    std::uint64_t prune() const;  // the sequence below which tombstones may go
    void compact(std::uint64_t minSeq);
    void updateNumReaders();

    const std::uint64_t& sequence() const { return sequence_; }  // of the last notification
    std::uint32_t capacity() const { return capacity_; }

    struct Counters {
        std::uint64_t notifications = 0;
        std::uint64_t tombstones = 0;
        std::uint64_t compactions = 0;
    };
    const Counters& counters() const { return counters_; }

 private:
    static constexpr std::uint32_t noPosition = 0xFFFFFFFFu;

    ConquerTable::Header& table(std::uint32_t id) {
        return *reinterpret_cast<ConquerTable::Header*>(segments_[id]->base());
    }
    ConquerTable::Header& current() { return *current_; }
    void append(std::uint32_t slot) {
        if (position_ >= capacity_) [[unlikely]]
            throwNoRoom();
        debug_.log(
            9, [&] { return Quil::cat("ConquerWriter::notify() notifying slot ", slot, " sequence ", sequence_ + 1); });
        ConquerTable::Record& record = current().record(position_);
        Mem::Atomics::storeSplit(record.sequence, ++sequence_);
        Mem::Atomics::store32(record.slot, slot);
        if (slot >= conquerPos_.size()) [[unlikely]]
            conquerPos_.resize(slot + 1, noPosition);
        conquerPos_[slot] = position_;
        // ORDER queue, with ConquerReader::poll: the record is whole before currentPos passes it.
        Mem::Atomics::store32(current().currentPos, ++position_);
        ++live_;
        ++counters_.notifications;
        if (kickSm_) kickSm_->doKickSleepers();
    }
    [[noreturn]] void throwMismatch(std::uint32_t slot, std::uint32_t position);
    [[noreturn]] void throwNoRoom() const;
    std::uint32_t survivors(std::uint64_t minSeq);
    std::uint32_t fittingCapacity(std::uint32_t records) const;
    void lengthen(std::uint32_t id, std::uint32_t capacity);
    std::uint32_t copySurvivors(ConquerTable::Header& to, std::uint64_t minSeq);
    void switchTo(std::uint32_t id);

    Quil::Trace& debug_;
    const bool pruneConquer_;
    Mem::WriterKickSm* kickSm_ = nullptr;
    std::unique_ptr<Mem::Segment> segments_[2];
    ConquerTable::Header* current_ = nullptr;
    std::uint32_t currentId_ = 0;        // mirrors the current word
    std::uint32_t capacity_ = 0;         // records the current file has room for
    std::uint32_t initialCapacity_ = 0;  // it never has less
    std::uint32_t position_ = 0;         // mirrors currentPos
    std::uint64_t sequence_ = 0;
    std::uint64_t minSeq_ = 0;
    std::uint32_t live_ = 0;                 // records that are no tombstones
    std::vector<std::uint32_t> conquerPos_;  // by slot: position of its live record
    Counters counters_;
};

}  // namespace Memtab
