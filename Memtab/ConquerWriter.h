// ConquerWriter: the writer's side of the notification queue.
//
// The queue never loses a change: every slot's latest notification stays in it as a live record; only tombstones
// (records made obsolete by a later one of the same slot) are dropped, when every connected reader has passed them.
//
// Corral: the notifications of one shrink, which readers take as one batch. While it is open the positions of its
// records are not noted, so nothing in it becomes a tombstone; a later change of the same slot adds a second live
// record. When every reader has passed it, it is cleared, and one pass over the records restores the invariant.
//
// Invariant: outside the corral a slot has at most one live record, and conquerPos_ points at it.
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
    ConquerWriter(Quil::Trace& debug, const Options& options)
        : debug_(debug), options_(options), waitingForReaders_(options.waitForReaders && options.expectedReaders > 0) {}

    // Two fresh files for a table of so many slots; they have their names only after publish().
    void create(Mem::Directory& directory, FenixId fenix, std::uint32_t numSlots);
    void publish(Mem::Directory& directory);
    // Goes on with the files that are there. False with a reason when they are not whole.
    bool attachExisting(Mem::Directory& directory, FenixId fenix, std::uint32_t numSlots, Quil::String& reason);
    void cleanup(Mem::Directory& directory);
    void detach();
    // Who reads. Null for a table that nobody else sees.
    void kickSmIs(Mem::WriterKickSm* kickSm) { kickSm_ = kickSm; }

    // Makes room for so many notifications of slots below numSlots, so that notify() cannot fail for want of memory.
    // Throws MemoryResourceException; nothing was changed then.
    void reserve(std::uint32_t numSlots, std::uint32_t notifications = 1) {
        numSlots_ = numSlots;
        if (numSlots > conquerPos_.size()) [[unlikely]]
            growPositions(numSlots);
        if (capacity_ - position_ < notifications) [[unlikely]]
            compact(prune(), notifications);
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
        if (corralStart_ != 0 && isInOpenCorral(record)) [[unlikely]]
            return false;
        debug_.log(9, [&] {
            return Quil::cat("ConquerWriter::tombstone() tombstoning ", slot,
                             " with sequence:", Mem::Atomics::loadSplit(record.sequence));
        });
        bury(record);
        conquerPos_[slot] = noPosition;
        return true;
    }

    // The sequence below which tombstones may go: every connected reader has consumed that far.
    std::uint64_t prune();
    // Drops what may go, with room for so many notifications afterwards.
    void compact(std::uint64_t minSeq, std::uint32_t notifications = 1);

    // Between the two, notifications belong to one shrink. Requires room for all of them.
    void markShrinkStart();
    void markShrinkEnd();
    // Clears the corral, or what of it every reader has passed. numSlots: the table's present size; notifications of
    // slots beyond it are then obsolete.
    void adjustCorral(std::uint32_t numSlots);
    bool hasCorral() const { return corralStart_ != 0; }

    // A reader said that it has consumed up to a sequence; it had said another before.
    void updateSequence(const Mem::WriterKickSm::Reader& reader, std::uint64_t before);
    void updateNumReaders();

    // Every connected reader, or the one of this name, has consumed everything, and nothing is held together in a
    // corral. An unknown name has not.
    bool quiesced() const;
    bool clientQuiesced(const Quil::String& readerName) const;

    // Whether files and mirror agree; else the first thing that does not.
    bool validate(Quil::String& reason);
    // Whether both files are sound by themselves.
    bool validateFile(FenixId fenix, Quil::String& reason);

    const std::uint64_t& sequence() const { return sequence_; }  // of the last notification
    std::uint32_t capacity() const { return capacity_; }
    std::uint32_t numReaders() const { return kickSm_ ? kickSm_->numReaders() : 0; }
    bool isWaitingForReaders() const { return waitingForReaders_; }

    struct Counters {
        std::uint64_t notifications = 0;
        std::uint64_t tombstones = 0;
        std::uint64_t compactions = 0;
        std::uint64_t droppedReaders = 0;  // too far behind for the queue's cap
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
            growPositions(slot + 1);
        if (!corralIsOpen()) [[likely]]
            conquerPos_[slot] = position_;
        // ORDER queue, with ConquerReader::poll: the record is whole before currentPos passes it.
        Mem::Atomics::store32(current().currentPos, ++position_);
        ++live_;
        ++counters_.notifications;
        if (kickSm_) kickSm_->doKickSleepers();
    }
    void bury(ConquerTable::Record& record) {
        Mem::Atomics::store32(record.slot, ConquerTable::tombstoneSlot);
        --live_;
        ++counters_.tombstones;
    }
    bool corralIsOpen() const { return corralStart_ != 0 && corralEnd_ == 0; }
    bool isInOpenCorral(const ConquerTable::Record& record) const;
    void corralIs(std::uint64_t start, std::uint64_t end);
    void growPositions(std::uint32_t numSlots);
    void findPositions();
    std::uint64_t lowestSequence() const;
    std::uint32_t survivors(std::uint64_t minSeq);
    std::uint64_t fittingCapacity(std::uint32_t records, std::uint32_t notifications) const;
    std::uint64_t capacityCap() const;
    std::uint32_t chooseCapacity(std::uint64_t& minSeq, std::uint32_t notifications);
    void lengthen(std::uint32_t id, std::uint32_t capacity);
    std::uint32_t copySurvivors(ConquerTable::Header& to, std::uint64_t minSeq);
    void switchTo(std::uint32_t id);
    Quil::String recordsFault();
    Quil::String corralFault();
    Quil::String positionsFault();
    [[noreturn]] void throwMismatch(std::uint32_t slot, std::uint32_t position);
    [[noreturn]] void throwNoRoom() const;

    Quil::Trace& debug_;
    const Options options_;
    bool waitingForReaders_;
    Mem::WriterKickSm* kickSm_ = nullptr;
    std::unique_ptr<Mem::Segment> segments_[2];
    ConquerTable::Header* current_ = nullptr;
    std::uint32_t currentId_ = 0;        // mirrors the current word
    std::uint32_t capacity_ = 0;         // records the current file has room for
    std::uint32_t initialCapacity_ = 0;  // it never has less
    std::uint32_t position_ = 0;         // mirrors currentPos
    std::uint64_t sequence_ = 0;
    std::uint64_t minSeq_ = 0;
    std::uint64_t corralStart_ = 0;          // first sequence of the corral; 0: none
    std::uint64_t corralEnd_ = 0;            // its last; 0: open
    std::uint32_t live_ = 0;                 // records that are no tombstones
    std::uint32_t numSlots_ = 0;             // of the table
    std::vector<std::uint32_t> conquerPos_;  // by slot: position of its live record
    Counters counters_;
};

}  // namespace Memtab
