// MemtabReader: looks entries up and walks them, in a table that another process is changing.
//
// Threads   An object belongs to one thread. It never writes to the table's files and takes no lock.
// Errors    Verro::CorruptionDetectedException for a table that does not hang together; no damaged file makes it hang,
//           crash or return bytes of two versions.
//
// Guarantees
//   G1  A lookup sees every write published before it began, or a later one.
//   G2  A returned record is one version, never bytes of two.
//   G3  A retry means that the writer made progress; anything else ends as corruption.
//   G4  A walk goes in ascending (rhash, key) order; it meets every entry that is there from its begin to its end.
//   Not promised: that two lookups, or two tables, belong to one moment.
#pragma once

#include <atomic>
#include <bit>

#include "Memtab/BucketTable.h"
#include "Memtab/SlotReaderTable.h"
#include "Verro/Exception.h"
#include "Verro/Hash.h"

namespace Memtab {

// Where a reader's walk stands: the slot last read, and what it held then.
struct ReaderIterHint {
    std::uint32_t slot = endOfList;
    std::uint32_t state = 0;
    std::uint32_t rhash = 0;
    std::uint32_t attachment = 0;  // of the reader; a hint does not outlive the files it was made for
};

template <class Key, class Value, class OpsType>
class MemtabReader {
    static_assert(std::is_trivially_copyable_v<Value> && sizeof(Value) % 4 == 0);

 public:
    using IterHint = ReaderIterHint;

    explicit MemtabReader(Quil::Trace& debug) : debug_(debug) {}

    bool attach(Mem::Directory& directory, FenixId fenix, const SlotTable::Format& expected, Quil::String& reason) {
        attachment_ = nextAttachment();
        return slots_.attach(debug_, directory, fenix, expected, reason) &&
               buckets_.attach(debug_, directory, fenix, reason);
    }

    // The record of the key, in the buffer or, without one, in a private buffer that the next lookup overwrites.
    // When the key is absent, found is false and the record is the default one.
    const Value& lookup(const Key& key, bool& found, Value* buffer = nullptr) {
        Value& out = buffer ? *buffer : value_;
        stable([&] { found = doLookup(key, out); });
        if (found) return out;
        if (buffer) *buffer = default_;
        hint_ = IterHint();
        return default_;
    }

    // Copies the entry of one slot, and the state word that goes with it. False when the slot is free, or not there any
    // more.
    bool safeValue(std::uint32_t index, Value& out, std::uint32_t& state) {
        stable([&] { state = index < slots_.numSlots() ? copyValue(slotAt(index), out) : 0; });
        return (state & occupied) != 0;
    }
    bool safeValue(std::uint32_t index, Value& out) {
        std::uint32_t state = 0;
        return safeValue(index, out, state);
    }

    // The first entry of the table, and the one that follows a key, whether or not the key is still there.
    bool first(Value& out, IterHint& hint) {
        bool found = false;
        stable([&] { found = seek(nullptr, out, hint); });
        return found;
    }
    bool next(const Key& key, Value& out, IterHint& hint) {
        const Key after = key;  // the caller's may lie in the buffer
        if (stepFrom(hint, out)) [[likely]]
            return true;
        bool found = false;
        const IterHint from = hint;
        stable([&] {
            hint = from;  // an attempt that is repeated starts where the first one did
            found = seek(&after, out, hint);
        });
        return found;
    }

    // The slot of the entry that the last successful lookup found.
    std::uint32_t lastSlot() const { return hint_.slot; }
    // Learns of another size at once, not with the next look.
    void checkSize() {
        stable([] {});
    }
    std::uint32_t numSlots() const { return slots_.numSlots(); }
    std::uint32_t slotCounter() const { return slots_.countCounter(); }
    std::uint32_t bucketCounter() const { return buckets_.countCounter(); }
    std::uint64_t lookasides() const { return lookasides_; }  // values taken from the spare slot
    std::uint64_t restarts() const { return restarts_; }      // walks begun again because the writer was at work

 private:
    static constexpr std::size_t slotSize = (16 + sizeof(Value) + 7) / 8 * 8;

    [[noreturn]] static void corrupt(Quil::String message) {
        throw Verro::CorruptionDetectedException(std::move(message));
    }

    const SlotTable::Slot& slotAt(std::uint32_t index) const {
        if (index >= slots_.numSlots()) [[unlikely]] {
            corrupt(Quil::cat("SlotReader::operator[] out-of-range index: ", index, " max:", slots_.numSlots()));
        }
        return slots_.slot(index, slotSize);
    }

    static std::uint32_t nextAttachment() {
        static std::atomic<std::uint32_t> attachments{0};
        return ++attachments;
    }

    // Repeats an attempt until no count word moved during it. An error of an attempt that ran over an outdated mapping
    // is none.
    template <class Attempt>
    void stable(Attempt&& attempt) {
        for (bool again = true; again;) {
            try {
                attempt();
                again = doResize();
            } catch (const Verro::CorruptionDetectedException&) {
                if (!doResize()) throw;
            }
        }
    }
    bool doResize() {
        if (!slots_.isStale() && !buckets_.isStale()) [[likely]]
            return false;
        const bool slotsMoved = slots_.checkResize();
        if (slotsMoved) attachment_ = nextAttachment();  // after a shrink a slot may come back with another entry
        return buckets_.checkResize(debug_) || slotsMoved;
    }

    // Copies one version of the slot's value and returns its state.
    std::uint32_t copyValue(const SlotTable::Slot& slot, Value& out) {
        std::uint32_t state = Mem::Atomics::load32(slot.state);
        for (;;) {
            const std::byte* from = slot.value();
            if (state & lookaside) [[unlikely]] {
                ++lookasides_;
                from = slots_.spare().value();
            }
            // ORDER rewrite, with MemtabWriter::rewrite: bytes of the next version come with its state.
            Mem::Atomics::copyOut<sizeof(Value)>(&out, from);
            const std::uint32_t again = Mem::Atomics::load32(slot.state);
            if (again == state) [[likely]]
                return state;
            state = again;
        }
    }

    // A cursor on a chain: the link through which the current slot was reached, and what it said then.
    struct Cursor {
        const Mem::Word64* link;
        Mem::Versioned word;
        bool atEnd() const { return (word.value() & endOfChain) != 0; }
        bool stillLeadsHere() const { return Mem::Versioned::load(*link) == word; }
    };
    Cursor atBucket(std::uint32_t bucket) const {
        const Mem::Word64& link = buckets_[bucket];
        return {&link, Mem::Versioned::load(link)};
    }

    // What one look at a slot says: its order, and whether the look was at a linked entry at all.
    struct Look {
        std::uint32_t state = 0;
        std::uint32_t rhash = 0;
        bool isEntry() const { return (state & occupied) != 0; }
    };
    static Look look(const SlotTable::Slot& slot) {
        for (;;) {
            const std::uint32_t state = Mem::Atomics::load32(slot.state);
            const std::uint32_t rhash = Mem::Atomics::load32(slot.rhash);
            if (Mem::Atomics::load32(slot.state) == state) [[likely]]
                return {state, rhash};
        }
    }

    // Tells a writer at work from damage: two restarts at one slot with every word unchanged.
    class Restarts {
     public:
        explicit Restarts(std::uint64_t& counter) : counter_(counter) {}
        void count(const Cursor& at, std::uint32_t state) {
            ++counter_;
            if (at.link == link_ && at.word == word_ && state == state_) {
                corrupt(Quil::cat("MemtabReader::doLookup() slot linked but not occupied: ", at.word.value()));
            }
            link_ = at.link;
            word_ = at.word;
            state_ = state;
        }
        void count() { ++counter_; }

     private:
        std::uint64_t& counter_;
        const Mem::Word64* link_ = nullptr;
        Mem::Versioned word_{0};
        std::uint32_t state_ = 0;
    };

    // Examines the slot under the cursor: judge(slot, look) says where the wanted key stands to it and may copy it (and
    // look again thereby). False when the walk must start over: nothing that was seen counts.
    template <class Judge>
    bool examine(const Cursor& at, Restarts& restarts, Look& seen, Cursor& onward, Judge&& judge) {
        const SlotTable::Slot& slot = slotAt(at.word.value());
        seen = look(slot);
        if (seen.isEntry()) [[likely]]
            judge(slot, seen);
        if (!seen.isEntry()) [[unlikely]] {
            restarts.count(at, seen.state);
            return false;
        }
        // ORDER remove, with MemtabWriter::remove: the next link first, then whether the way here still stands. A slot
        // that was freed and reused on the way is noticed by the link that no longer leads to it.
        onward = {&slot.link, Mem::Versioned::load(slot.link)};
        if (!at.stillLeadsHere()) [[unlikely]] {
            restarts.count();
            return false;
        }
        return true;
    }

    // One attempt. True when the key was found and copied out.
    bool doLookup(const Key& key, Value& out) {
        if (buckets_.numBuckets() == 0) [[unlikely]] {
            debug_.log(5, [] { return Quil::String("MemtabReader::doLookup() bucket table detached"); });
            return false;
        }
        const std::uint32_t hash = OpsType::hash(key), wanted = Verro::Util::reverse(hash);
        Restarts restarts(restarts_);
        for (;;) {
            const Found found = walkChain(hash & (buckets_.numBuckets() - 1), key, wanted, out, restarts);
            if (found != Found::restart) [[likely]]
                return found == Found::yes;
        }
    }

    enum class Found { yes, no, restart };
    Found walkChain(std::uint32_t bucket, const Key& key, std::uint32_t wanted, Value& out, Restarts& restarts) {
        Cursor at = atBucket(bucket), onward{};
        for (std::uint32_t slotCount = 1; !at.atEnd(); ++slotCount) {
            if (slotCount > slots_.numSlots()) [[unlikely]] {
                corrupt(Quil::cat("MemtabReader::doLookup() hash chain cycle detected, slotCount:", slotCount,
                                  " capacity:", slots_.numSlots()));
            }
            Look seen;
            int order = 1;  // of the wanted key to the slot's
            const bool good = examine(at, restarts, seen, onward, [&](const SlotTable::Slot& slot, Look& looked) {
                if (looked.rhash == wanted) {
                    looked.state = copyValue(slot, out);
                    const Key held = out.fwkKey();
                    order = OpsType::equal(key, held) ? 0 : OpsType::less(key, held) ? -1 : 1;
                } else if (wanted < looked.rhash) {
                    order = -1;
                }
            });
            if (!good) [[unlikely]]
                return Found::restart;
            if (order == 0) {
                hint_ = {at.word.value(), seen.state, seen.rhash, attachment_};
                return Found::yes;
            }
            if (order < 0) return Found::no;
            // Keys of one bucket agree in the upper bits of their reversed hashes.
            if ((seen.rhash ^ wanted) & buckets_.rhashMask()) [[unlikely]]
                checkBucket(seen.rhash, bucket, at.word.value());
            at = onward;
        }
        return Found::no;
    }

    // A key may stand in the bucket it has with this number of buckets, or with half or twice as many: a split or merge
    // may be under way.
    void checkBucket(std::uint32_t rhash, std::uint32_t bucket, std::uint32_t index) {
        const std::uint32_t hash = Verro::Util::reverse(rhash), buckets = buckets_.numBuckets();
        if ((hash & (buckets - 1)) == bucket || (buckets > 1 && (hash & (buckets / 2 - 1)) == bucket) ||
            (hash & (2 * buckets - 1)) == bucket) {
            return;
        }
        Value found;
        copyValue(slotAt(index), found);
        corrupt(Quil::cat("MemtabReader::doLookup() corrupt key detected. key:", OpsType::text(found.fwkKey())));
    }

    // The first entry behind a key in table order (of all, without a key).
    bool seek(const Key* after, Value& out, IterHint& hint) {
        if (buckets_.numBuckets() == 0) return false;
        Restarts restarts(restarts_);
        for (;;) {
            const Found found = seekOnce(after, out, hint, restarts);
            if (found != Found::restart) return found == Found::yes;
        }
    }
    Found seekOnce(const Key* after, Value& out, IterHint& hint, Restarts& restarts) {
        const std::uint32_t hash = after ? OpsType::hash(*after) : 0, rhash = Verro::Util::reverse(hash);
        if (after && hint.attachment == attachment_ && hint.slot != endOfList && hint.rhash != rhash) {
            // The entry the walk stands on lies where its key does not belong: going on by the key could go round.
            corrupt(Quil::cat("MemtabReader::seek() corrupt key detected. key:", OpsType::text(*after)));
        }
        Cursor at = atBucket(hash & (buckets_.numBuckets() - 1)), onward{};
        for (std::uint64_t steps = 0;; checkSteps(++steps)) {
            if (!nextSlot(at, steps)) return Found::no;
            Look seen;
            bool behind = false;  // whether the slot's key is behind the wanted one
            const bool good = examine(at, restarts, seen, onward, [&](const SlotTable::Slot& slot, Look& looked) {
                behind = !after || looked.rhash > rhash;
                if (!behind && looked.rhash != rhash) return;
                looked.state = copyValue(slot, out);
                behind = behind || OpsType::less(*after, out.fwkKey());
            });
            if (!good) [[unlikely]]
                return Found::restart;
            if (behind) {
                if (Verro::Util::reverse(OpsType::hash(out.fwkKey())) != seen.rhash) [[unlikely]] {
                    corrupt(Quil::cat("MemtabReader::seek() corrupt key detected. key:", OpsType::text(out.fwkKey())));
                }
                hint = {at.word.value(), seen.state, seen.rhash, attachment_};
                return Found::yes;
            }
            at = onward;
        }
    }

    // Follows the ends of chains to the bucket where the walk goes on. False at the end of the table.
    bool nextSlot(Cursor& at, std::uint64_t& steps) {
        while (at.atEnd()) {
            if (at.word.value() == endOfList) return false;
            const std::uint32_t bucket = at.word.value() & ~endOfChain;
            at = atBucket(bucket);
            ahead_.arrived(bucket, slots_, buckets_);
            checkSteps(++steps);
        }
        return true;
    }

    void checkSteps(std::uint64_t steps) const {
        if (steps <= std::uint64_t(slots_.numSlots()) + buckets_.numBuckets()) [[likely]]
            return;
        corrupt(Quil::cat("MemtabReader::seek() cycle detected, steps:", steps, " capacity:", slots_.numSlots()));
    }

    // A walk visits buckets and slots in an order that no processor guesses: asks for those it comes to soon. First for
    // the bucket's link, later for the slot that this names, last for the slot behind that. Only an advice: where it
    // errs, the walk is slower.
    class Ahead {
     public:
        [[gnu::always_inline]] void arrived(std::uint32_t bucket, const SlotReaderTable& slots,
                                            const BucketReaderTable& buckets) {
            const std::uint32_t count = buckets.numBuckets(), mask = count - 1;
            if (count < ringSize) return;  // any cache holds such a table
            if (bucket != ring_[at_ % ringSize].bucket) [[unlikely]]
                restart(bucket, count);
            last_ = BucketTable::following(last_, count) & mask;
            ring_[at_++ % ringSize].bucket = last_;
            // Masked and bounded again: the ring may be left from a larger table.
            __builtin_prefetch(&buckets.link(last_));
            Entry& entry = ring_[(at_ + slotsAhead) % ringSize];
            entry.first = bounded(Mem::Versioned::load(buckets.link(entry.bucket & mask)).value(), slots);
            touch(slots.slot(entry.first, slotSize));
            const std::uint32_t first = bounded(ring_[(at_ + secondsAhead) % ringSize].first, slots);
            const Mem::Word64& link = slots.slot(first, slotSize).link;
            touch(slots.slot(bounded(Mem::Versioned::load(link).value(), slots), slotSize));
        }

     private:
        static constexpr std::uint32_t ringSize = 32, slotsAhead = 16, secondsAhead = 8;  // buckets
        struct Entry {
            std::uint32_t bucket = endOfList;
            std::uint32_t first = 0;  // the first slot of its chain
        };

        void restart(std::uint32_t bucket, std::uint32_t count) {
            last_ = bucket;
            for (std::uint32_t i = 0; i < ringSize; ++i) {
                ring_[(at_ + i) % ringSize] = {last_, 0};
                if (i + 1 < ringSize) last_ = BucketTable::following(last_, count) & (count - 1);
            }
        }
        // For the end of a chain the first slot, so that there is no branch to guess wrong.
        static std::uint32_t bounded(std::uint32_t index, const SlotReaderTable& slots) {
            return index < slots.numSlots() ? index : 0;
        }
        static void touch(const SlotTable::Slot& slot) {
            const auto* bytes = reinterpret_cast<const std::byte*>(&slot);
            __builtin_prefetch(bytes);
            if constexpr (slotSize > 64) __builtin_prefetch(bytes + 64);
            if constexpr (slotSize > 128) __builtin_prefetch(bytes + slotSize - 1);
        }
        Entry ring_[ringSize];  // the buckets the walk comes to, the next one at at_
        std::uint32_t at_ = 0;
        std::uint32_t last_ = 0;  // the farthest
    };

    // One step from the slot the hint names, when nothing stands in the way: that slot still holds the entry it held,
    // no count word has moved, and the next entry is there. Otherwise false: the search by key decides.
    bool stepFrom(IterHint& hint, Value& out) {
        if (hint.attachment != attachment_ || hint.slot >= slots_.numSlots()) return false;
        const SlotTable::Slot& left = slots_.slot(hint.slot, slotSize);
        // The link before the state: a link that has become part of the free list comes with a state that shows it.
        Cursor at{&left.link, Mem::Versioned::load(left.link)};
        if (Mem::Atomics::load32(left.state) != hint.state) return false;
        for (std::uint32_t hops = 0; at.atEnd(); ++hops) {
            const std::uint32_t bucket = at.word.value() & ~endOfChain;
            if (bucket >= buckets_.numBuckets() || hops > buckets_.numBuckets()) return false;
            at = {&buckets_.link(bucket), Mem::Versioned::load(buckets_.link(bucket))};
            ahead_.arrived(bucket, slots_, buckets_);
        }
        const std::uint32_t index = at.word.value();
        if (index >= slots_.numSlots()) return false;
        const SlotTable::Slot& slot = slots_.slot(index, slotSize);
        const std::uint32_t rhash = Mem::Atomics::load32(slot.rhash), state = copyValue(slot, out);
        // Equal hashes are rare: the search by key puts such entries in order, and damaged ones right.
        const bool good = (state & occupied) && rhash > hint.rhash && at.stillLeadsHere() &&
                          Mem::Atomics::load32(left.state) == hint.state && !slots_.isStale() && !buckets_.isStale();
        if (good) [[likely]]
            hint = {index, state, rhash, attachment_};
        return good;
    }

    Quil::Trace& debug_;
    SlotReaderTable slots_;
    BucketReaderTable buckets_;
    const Value default_{};
    Value value_{};
    IterHint hint_;
    Ahead ahead_;
    std::uint32_t attachment_ = 0;  // tells this mapping's hints from others'
    std::uint64_t lookasides_ = 0;
    std::uint64_t restarts_ = 0;
};

}  // namespace Memtab
