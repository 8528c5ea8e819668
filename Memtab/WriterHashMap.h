// WriterHashMap: buckets and chains, as the writer changes them under its readers' eyes.
//
// Every chain ascends by (rhash, key), rhash being the key's hash with its bits reversed. The chain of bucket b holds
// the entries whose hash modulo the number of buckets is b; since that number only doubles or halves, the entries that
// leave a bucket when it doubles are the tail of its chain, and the whole table is one list in ascending order.
//
// Errors    Verro::CorruptionDetectedException for a chain that does not hang together.
#pragma once

#include "Memtab/BucketTable.h"
#include "Memtab/SlotWriterTable.h"
#include "Verro/Exception.h"
#include "Verro/Hash.h"

namespace Memtab {

template <class Key, class Value, class OpsType>
class WriterHashMap {
 public:
    static constexpr std::uint32_t noSlot = endOfList;

    // Where a key is, or where it would be inserted.
    struct Place {
        Mem::Word64* link;   // the link that names the slot, or the one to insert behind
        Mem::Segment* home;  // the segment that link lies in
        std::uint32_t slot;  // noSlot when the key is absent
        std::uint32_t bucket;
    };

    WriterHashMap(Quil::Trace& debug, SlotWriterTable& slots) : debug_(debug), slots_(slots) {}

    void create(Mem::Directory& directory, std::uint32_t numBuckets, FenixId fenix) {
        buckets_.create(directory, numBuckets, fenix);
    }
    bool attachExisting(Mem::Directory& directory, FenixId fenix, Quil::String& reason) {
        return buckets_.attachExisting(debug_, directory, fenix, reason);
    }
    void detach() { buckets_.detach(); }
    BucketWriterTable& buckets() { return buckets_; }
    std::uint32_t numBuckets() const { return buckets_.numBuckets(); }

    Place find(const Key& key, std::uint32_t hash) {
        const std::uint32_t bucket = hash & (numBuckets() - 1), wanted = Verro::Util::reverse(hash);
        Place place{&buckets_[bucket], &buckets_.segment(), noSlot, bucket};
        for (std::uint32_t steps = 0;; ++steps) {
            const std::uint32_t next = Mem::Versioned::load(*place.link).value();
            if (next & endOfChain) return place;
            if (steps >= slots_.numSlots()) [[unlikely]]
                throwCycle("find()", steps, bucket);
            SlotTable::Slot& slot = slots_[next];
            const std::uint32_t rhash = Mem::Atomics::load32(slot.rhash);
            // Keys of one bucket agree in the upper bits of their reversed hashes.
            if (!(Mem::Atomics::load32(slot.state) & occupied) || ((rhash ^ wanted) & buckets_.rhashMask()))
                [[unlikely]]
                throwMember(slot, next, bucket);
            const int order = wanted != rhash ? (wanted < rhash ? -1 : 1) : compare(key, slot);
            if (order < 0) return place;
            if (order == 0) {
                place.slot = next;
                return place;
            }
            place.link = &slot.link;
            place.home = &slots_.segment();
        }
    }

    // The first slot in table order at or behind this link; noSlot at the end of the walk.
    std::uint32_t firstFrom(const Mem::Word64& link) {
        std::uint32_t next = Mem::Versioned::load(link).value();
        for (std::uint32_t hops = 0; next & endOfChain; ++hops) {
            if (next == endOfList) return noSlot;
            if (hops > numBuckets()) {
                throw Verro::CorruptionDetectedException("WriterHashMap::firstFrom() bucket walk cycle detected");
            }
            next = Mem::Versioned::load(buckets_[next & ~endOfChain]).value();
        }
        return next;
    }
    std::uint32_t first() { return firstFrom(buckets_[0]); }

    std::uint32_t bucketOf(std::uint32_t index) {
        return Verro::Util::reverse(Mem::Atomics::load32(slots_[index].rhash)) & (numBuckets() - 1);
    }
    Value value(std::uint32_t index) { return copyOf(slots_[index]); }

    // Moves the entry in slot `from` to slot `to`, which is free and on no list: first the copy, then the link that
    // leads to it. What is left behind is no entry any more.
    void move(std::uint32_t from, std::uint32_t to) {
        SlotTable::Slot &source = slots_[from], &target = slots_[to];
        const Key key = copyOf(source).fwkKey();
        const Place place = find(key, OpsType::hash(key));
        if (place.slot == noSlot) throw Quil::AssertionException(Quil::cat(moveError(from), " key not found"));
        if (place.slot != from) throw Quil::AssertionException(Quil::cat(moveError(from), " not referenced"));
        Mem::Atomics::store32(target.rhash, Mem::Atomics::load32(source.rhash));
        fill(target, copyOf(source));
        Mem::Versioned::load(target.link).next(Mem::Versioned::load(source.link).value(), linkStep).store(target.link);
        Mem::Versioned::load(*place.link).next(to, linkStep).store(*place.link);
    }
    // A reader may stand on the slot that was left: its link moves on, so that the reader notices.
    void leave(std::uint32_t index) {
        SlotTable::Slot& slot = slots_[index];
        Mem::Atomics::store32(slot.state, Mem::Atomics::load32(slot.state) & ~occupied);
        Mem::Versioned::load(slot.link).next(endOfList, linkStep).store(slot.link);
    }

    // Gives a slot its value: LOOKASIDE stands before the first new byte and until the last. A free slot lacks OCCUPIED
    // meanwhile.
    static void fill(SlotTable::Slot& slot, const Value& value) {
        const std::uint32_t state = Mem::Atomics::load32(slot.state) + lookaside;
        Mem::Atomics::store32(slot.state, state);
        Mem::Atomics::copyIn<sizeof(Value)>(slot.value(), &value);
        Mem::Atomics::store32(slot.state, (state + lookaside) | occupied);
    }

    // Doubles the buckets when there are more entries than buckets.
    void growBucketsIfFull() {
        if (slots_.occupiedSlots() > numBuckets() && numBuckets() <= maxIndex / 2) [[unlikely]]
            growBuckets();
    }
    // Halves them when less than a quarter is used, down to so many. Whether it did.
    bool shrinkBucketsIfEmpty(std::uint32_t minimum) {
        if (slots_.occupiedSlots() >= numBuckets() / 4 || numBuckets() <= minimum) [[likely]]
            return false;
        shrinkBuckets();
        return true;
    }

 private:
    static Value copyOf(const SlotTable::Slot& slot) {
        Value copy;
        Mem::Atomics::copyOut<sizeof(Value)>(&copy, slot.value());
        return copy;
    }

    [[noreturn]] void throwMember(const SlotTable::Slot& slot, std::uint32_t index, std::uint32_t bucket) {
        throw Verro::CorruptionDetectedException(
            Quil::cat("WriterHashMap::find() corrupt key detected, slot: ", index, " bucket: ", bucket,
                      " hash: ", Quil::hex(Verro::Util::reverse(Mem::Atomics::load32(slot.rhash))),
                      " state: ", Quil::hex(Mem::Atomics::load32(slot.state))));
    }
    [[noreturn]] static void throwCycle(const char* operation, std::uint32_t steps, std::uint32_t bucket) {
        throw Verro::CorruptionDetectedException(Quil::cat(
            "WriterHashMap::", operation, " hash chain cycle detected, slotCount:", steps, " bucket:", bucket));
    }

    static int compare(const Key& key, const SlotTable::Slot& slot) {
        // The writer may look at its own entry in place: nobody else stores there.
        const Key held = reinterpret_cast<const Value*>(slot.value())->fwkKey();
        return OpsType::equal(key, held) ? 0 : OpsType::less(key, held) ? -1 : 1;
    }

    // The link in bucket's chain behind which the bucket's entries of the doubled table end: the one before the first
    // slot that belongs to bucket + numBuckets, or the last.
    Mem::Word64& lastLinkToKeep(std::uint32_t bucket, std::uint32_t before) {
        Mem::Word64* link = &buckets_[bucket];
        for (std::uint32_t steps = 0;; ++steps) {
            const std::uint32_t next = Mem::Versioned::load(*link).value();
            if (next & endOfChain) return *link;
            if (steps >= slots_.numSlots()) [[unlikely]]
                throwCycle("growBuckets()", steps, bucket);
            SlotTable::Slot& slot = slots_[next];
            if (Verro::Util::reverse(Mem::Atomics::load32(slot.rhash)) & before) return *link;
            link = &slot.link;
        }
    }

    void growBuckets() {
        const std::uint32_t before = numBuckets(), after = 2 * before;
        try {
            buckets_.makeRoom(after);
        } catch (const Quil::Exception& error) {
            // The table works with long chains too; it is tried again with the next insertion.
            debug_.log(3, [&] { return Quil::cat("WriterHashMap::growBuckets() failed: ", error.what()); });
            return;
        }
        // ORDER buckets: every new bucket leads to the tail that it will own, or past the bucket it splits from, before
        // the count makes it known; the chains are cut only then. A reader of either count finds every key.
        for (std::uint32_t b = 0; b < before; ++b) {
            const std::uint32_t tail = Mem::Versioned::load(lastLinkToKeep(b, before)).value();
            Mem::Word64& link = buckets_[b + before];
            Mem::Versioned::load(link).next(tail, linkStep).store(link);
        }
        buckets_.publishCount(after);
        for (std::uint32_t b = 0; b < before; ++b) {
            Mem::Word64& link = lastLinkToKeep(b, before);
            Mem::Versioned::load(link).next((b + before) | endOfChain, linkStep).store(link);
        }
        debug_.log(5, [&] { return Quil::cat("WriterHashMap::growBuckets() growing from: ", before, " to: ", after); });
    }

    // The last link of a bucket's chain, which names the bucket that comes next.
    Mem::Word64& lastLink(std::uint32_t bucket) {
        Mem::Word64* link = &buckets_[bucket];
        for (std::uint32_t steps = 0;; ++steps) {
            const std::uint32_t next = Mem::Versioned::load(*link).value();
            if (next & endOfChain) return *link;
            if (steps >= slots_.numSlots()) [[unlikely]]
                throwCycle("shrinkBuckets()", steps, bucket);
            link = &slots_[next].link;
        }
    }

    void shrinkBuckets() {
        const std::uint32_t after = numBuckets() / 2;
        // ORDER buckets: each chain is joined with the one that had split off, whose own link stays as it is, before
        // the count leaves the upper half out. A reader of either count finds every key. The end of the joined chain
        // names the bucket that follows the upper half, which is the one that follows the lower half among half as
        // many.
        for (std::uint32_t b = 0; b < after; ++b) {
            Mem::Word64& link = lastLink(b);
            Mem::Versioned::load(link).next(Mem::Versioned::load(buckets_[b + after]).value(), linkStep).store(link);
        }
        buckets_.publishCount(after);
        debug_.log(5, [&] {
            return Quil::cat("WriterHashMap::shrinkBuckets() shrunk to numBuckets: ", after,
                             " shrinkBuckets_:", after / 4);
        });
    }

    static Quil::String moveError(std::uint32_t from) { return Quil::cat("WriterHashMap::move() fromSlotId:", from); }

    Quil::Trace& debug_;
    SlotWriterTable& slots_;
    BucketWriterTable buckets_;
};

}  // namespace Memtab
