// Follower: turns the queue's slot numbers into keys: which entries of a table appeared, changed or went.
//
// A notification names only a slot, so the follower keeps the key last seen in each slot; a notified slot marks that
// key and the one it holds now. Marks are kept with the slots, and apart only for keys that were seen to leave their
// slot: a key that changed many times is delivered once, one that moved meanwhile at most twice. Mounting a new
// incarnation marks the old keys and the new ones together, so that nothing that vanished meanwhile is missed.
//
// Seen means by anyone in this process: saw() is told of every entry that the table hands out. Were it only the
// follower's own look, a key could escape: moved into slot t (its first notification still queued), handed out from
// there, removed, and t filled with another key, whose notification replaces the queued ones. Nobody would ever be told
// that the key they were given is gone. Proof that with saw() none escapes: an entry handed out from t was linked then,
// so the notification of its removal comes later, and is still to be consumed; when t is looked at for it, or for any
// later change of t, the key seen in t is this one, or another was seen there since, which marked this one.
#pragma once

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

    // Starts over with this table: marks every key known so far and every key of the table.
    void resynchronise(Reader& reader, ConquerReader& queue) {
        for (const Seen& seen : seen_) {
            if (seen.known) gone_.insert(seen.key);
        }
        seen_.clear();
        changed_.clear();
        // What changes from here on is queued behind the sequence taken now; what changed before is seen by the scan.
        queue.skipToEnd();
        for (std::uint32_t slot = 0; slot < reader.numSlots(); ++slot) note(reader, slot);
    }

    // The table hands out this entry, found in this slot.
    void saw(std::uint32_t slot, const Key& key) {
        if (slot >= seen_.size()) seen_.resize(slot + 1);
        Seen& seen = seen_[slot];
        if (seen.known && OpsType::equal(seen.key, key)) return;
        forget(seen);
        seen.key = key;
        seen.known = true;
    }

    // Takes at most so many notifications. Returns whether more may be waiting.
    bool collect(Reader& reader, ConquerReader& queue, std::size_t budget) {
        slots_.clear();
        const bool more = queue.poll(slots_, budget);
        for (const std::uint32_t slot : slots_) note(reader, slot);
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
        bool known = false;   // the slot held this key when anyone last looked
        bool marked = false;  // it is to be delivered
        bool queued = false;  // the slot stands in changed_
    };

    void note(Reader& reader, std::uint32_t slot) {
        Value value;
        if (!reader.safeValue(slot, value)) {
            if (slot < seen_.size()) forget(seen_[slot]);
            return;
        }
        const Key key = value.fwkKey();
        saw(slot, key);
        if (!gone_.empty()) gone_.erase(key);  // it has come back, or come here
        Seen& seen = seen_[slot];
        seen.marked = true;
        if (!std::exchange(seen.queued, true)) changed_.push_back(slot);
    }
    void forget(Seen& seen) {
        if (seen.known) gone_.insert(seen.key);
        seen.known = seen.marked = false;
    }

    std::vector<Seen> seen_;             // by slot
    std::deque<std::uint32_t> changed_;  // slots whose key is to be delivered
    std::set<Key> gone_;                 // keys to be delivered that have left their slot
    std::vector<std::uint32_t> slots_;   // of the turn under way
};

}  // namespace Memtab
