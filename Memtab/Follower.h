// Follower: turns the queue's slot numbers into keys: which entries of a table appeared, changed or went.
//
// A notification names only a slot, so the follower keeps the key last seen in each slot; a notified slot marks that
// key and the one it holds now. Marks are kept with the slots, and apart only for keys that were seen to leave their
// slot: a key that changed many times is delivered once, one that moved meanwhile at most twice.
//
// When the writer has gone, or another incarnation takes its place, the queue is of no help: a change may have been cut
// off from its notification, and the new files have another queue. The table that was followed so far stays mapped
// until then, so the two are compared: marked is each key of either that does not hold in the new one what it is known
// to hold. Known to hold: the state word of a slot counts its rewrites, so while it is still the one that came with the
// last notification, whoever looked since was handed that value or, before it was notified, an older one, and is told
// by the notification. A slot that was given back to the system comes anew with a count of 0: it is not known again
// before the table has been seen with its new size and an empty queue.
//
// Seen means by anyone in this process: saw() is told of every entry that the table hands out. Were it only the
// follower's own look, a key could escape: moved into slot t (its first notification still queued), handed out from
// there, removed, and t filled with another key, whose notification replaces the queued ones. Nobody would ever be told
// that the key they were given is gone. Proof that with saw() none escapes: an entry handed out from t was linked then,
// so the notification of its removal comes later, and is still to be consumed; when t is looked at for it, or for any
// later change of t, the key seen in t is this one, or another was seen there since, which marked this one.
#pragma once

#include <cstring>
#include <deque>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "Memtab/ConquerReader.h"
#include "Memtab/MemtabReader.h"

namespace Memtab {

template <class Key, class Value, class OpsType>
class Follower {
 public:
    using Reader = MemtabReader<Key, Value, OpsType>;

    // Goes over to this table and marks every key that differs from the one followed so far, which is still mapped; all
    // keys of both where there is none (null), or it is damaged. An exception leaves everything as it was.
    void resynchronise(Reader* before, Reader& reader, ConquerReader& queue) {
        reader.checkSize();
        const Size size = sizeOf(reader);
        // What changes from here on is queued behind the sequence taken now; what changed before is seen by the scan.
        queue.skipToEnd();
        std::vector<Seen> present;
        for (std::uint32_t slot = 0; slot < reader.numSlots(); ++slot) {
            Seen& seen = present.emplace_back();
            Value value;
            if (!reader.safeValue(slot, value, seen.state)) continue;
            seen.key = value.fwkKey();
            seen.known = true;
            seen.marked = !isKnown(before, slot, value);
        }
        for (Seen& seen : present) seen.marked = seen.known && (seen.marked || !before);
        std::vector<Key> gone;
        for (std::uint32_t slot = 0; slot < seen_.size(); ++slot) {
            const Seen& seen = seen_[slot];
            if (!seen.known || holds(present, slot, seen.key)) continue;
            // Also what the scan has missed, since it moved meanwhile: it is seen nowhere from now on.
            bool found = false;
            reader.lookup(seen.key, found);
            if (!found || !holds(present, reader.lastSlot(), seen.key)) gone.push_back(seen.key);
        }
        seen_ = std::move(present);
        gone_.insert(gone.begin(), gone.end());
        changed_.clear();
        for (std::uint32_t slot = 0; slot < seen_.size(); ++slot) {
            if (seen_[slot].marked) mark(slot);
        }
        size_ = size;
    }

    // The table hands out this entry, found in this slot.
    void saw(std::uint32_t slot, const Key& key) {
        if (slot >= seen_.size()) seen_.resize(slot + 1);
        Seen& seen = seen_[slot];
        if (seen.known && OpsType::equal(seen.key, key)) return;
        forget(seen);
        seen.key = key;
        seen.known = true;
        seen.state = 0;
    }

    // Takes at most so many notifications. Returns whether more may be waiting.
    bool collect(Reader& reader, ConquerReader& queue, std::size_t budget) {
        slots_.clear();
        reader.checkSize();
        const Size size = sizeOf(reader);
        const bool more = queue.poll(slots_, budget);
        for (const std::uint32_t slot : slots_) note(reader, slot);
        if (!more) size_ = size;
        return more;
    }

    // The next key to deliver: of those that came or changed, in the order in which that was noticed; of those that
    // left their slot.
    std::optional<Key> takeChanged() {
        while (!changed_.empty()) {
            Seen& seen = seen_[changed_.front()];
            changed_.pop_front();
            seen.queued = false;
            if (!std::exchange(seen.marked, false)) continue;
            if (!gone_.empty()) gone_.erase(seen.key);
            return seen.key;
        }
        return std::nullopt;
    }
    std::optional<Key> takeGone() {
        if (gone_.empty()) return std::nullopt;
        return std::move(gone_.extract(gone_.begin()).value());
    }
    // A key that was taken and could not be delivered.
    void putBack(const Key& key) { gone_.insert(key); }
    // Nothing that is marked is to be delivered.
    void unmark() {
        for (const std::uint32_t slot : changed_) seen_[slot].marked = seen_[slot].queued = false;
        changed_.clear();
        gone_.clear();
    }
    bool hasMarked() const { return !changed_.empty() || !gone_.empty(); }

 private:
    struct Seen {
        Key key{};
        std::uint32_t state = 0;  // of the slot when it was last noted; 0: not since it holds this key
        bool known = false;       // the slot held this key when anyone last looked
        bool marked = false;      // it is to be delivered
        bool queued = false;      // the slot stands in changed_
    };

    struct Size {
        std::uint32_t slots = 0;
        std::uint32_t changes = 0;
    };
    static Size sizeOf(const Reader& reader) { return {reader.numSlots(), reader.slotCounter()}; }
    // Since the queue was last empty; then no slot went and came anew. Two changes may be a shrink and a growth.
    bool hasOnlyGrown(const Size& now) const {
        return now.changes == size_.changes || (now.changes == size_.changes + 1 && now.slots > size_.slots);
    }

    void note(Reader& reader, std::uint32_t slot) {
        Value value;
        std::uint32_t state = 0;
        if (!reader.safeValue(slot, value, state)) {
            if (slot < seen_.size()) forget(seen_[slot]);
            return;
        }
        saw(slot, value.fwkKey());
        seen_[slot].state = state;
        mark(slot);
    }
    void mark(std::uint32_t slot) {
        Seen& seen = seen_[slot];
        if (!gone_.empty()) gone_.erase(seen.key);  // it has come back, or come here
        seen.marked = true;
        if (!std::exchange(seen.queued, true)) changed_.push_back(slot);
    }
    static bool holds(const std::vector<Seen>& seen, std::uint32_t slot, const Key& key) {
        return slot < seen.size() && seen[slot].known && OpsType::equal(seen[slot].key, key);
    }
    // Whether this, which now lies in that slot, is what its key is known to hold. Damage of the table before makes all
    // unknown.
    bool isKnown(Reader*& before, std::uint32_t slot, const Value& value) {
        if (!before) return false;
        const Key key = value.fwkKey();
        try {
            if (!holds(seen_, slot, key)) {  // in other files it lies anywhere
                bool found = false;
                before->lookup(key, found);
                if (found) slot = before->lastSlot();
                if (!found || !holds(seen_, slot, key)) return false;
            }
            Value held;
            std::uint32_t state = 0;
            const bool isThere = before->safeValue(slot, held, state) && hasOnlyGrown(sizeOf(*before));
            return isThere && !seen_[slot].marked && state == seen_[slot].state &&
                   std::memcmp(&held, &value, sizeof value) == 0;
        } catch (const Verro::CorruptionDetectedException&) {
            before = nullptr;
            return false;
        }
    }
    void forget(Seen& seen) {
        if (seen.known) gone_.insert(seen.key);
        seen.known = seen.marked = false;
    }

    std::vector<Seen> seen_;             // by slot
    std::deque<std::uint32_t> changed_;  // slots whose key is to be delivered
    std::set<Key> gone_;                 // keys to be delivered that have left their slot
    std::vector<std::uint32_t> slots_;   // of the turn under way
    // From before the queue was last seen empty: all that was announced before that size is consumed.
    Size size_;
};

}  // namespace Memtab
