// Follower: turns the queue's slot numbers into keys: which entries of a table appeared, changed or went.
//
// A notification names only a slot, so the follower keeps the key last seen in each slot; a notified slot marks that
// key and the one it holds now. Marked keys are a set: a key that changed many times is delivered once. Mounting a new
// incarnation marks the old keys and the new ones together, so that nothing that vanished meanwhile is missed.
//
// Seen means by anyone in this process: saw() is told of every entry that the table hands out. Were it only the
// follower's own look, a key could escape: moved into slot t (its first notification still queued), handed out from
// there, removed, and t filled with another key, whose notification replaces the queued ones. Nobody would ever be told
// that the key they were given is gone. Proof that with saw() none escapes: an entry handed out from t was linked then,
// so the notification of its removal comes later, and is still to be consumed; when t is looked at for it, or for any
// later change of t, the key seen in t is this one, or another was seen there since, which marked this one.
#pragma once

#include <optional>
#include <set>
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
        for (const auto& key : keys_) {
            if (key) marked_.insert(*key);
        }
        keys_.clear();
        // What changes from here on is queued behind the sequence taken now; what changed before is seen by the scan.
        queue.skipToEnd();
        for (std::uint32_t slot = 0; slot < reader.numSlots(); ++slot) note(reader, slot);
    }

    // The table hands out this entry, found in this slot.
    void saw(std::uint32_t slot, const Key& key) {
        if (slot >= keys_.size()) keys_.resize(slot + 1);
        if (keys_[slot] && OpsType::equal(*keys_[slot], key)) return;
        if (keys_[slot]) marked_.insert(*keys_[slot]);
        keys_[slot] = key;
    }

    // Takes at most so many notifications. Returns whether more may be waiting.
    bool collect(Reader& reader, ConquerReader& queue, std::size_t budget) {
        slots_.clear();
        const bool more = queue.poll(slots_, budget);
        for (const std::uint32_t slot : slots_) note(reader, slot);
        return more;
    }

    // The next key to deliver.
    std::optional<Key> take() {
        if (marked_.empty()) return std::nullopt;
        const Key key = *marked_.begin();
        marked_.erase(marked_.begin());
        return key;
    }
    bool hasMarked() const { return !marked_.empty(); }

 private:
    void note(Reader& reader, std::uint32_t slot) {
        Value value;
        if (reader.safeValue(slot, value)) {
            saw(slot, value.fwkKey());
            marked_.insert(value.fwkKey());
        } else if (slot < keys_.size() && keys_[slot]) {
            marked_.insert(*keys_[slot]);
            keys_[slot].reset();
        }
    }

    std::vector<std::optional<Key>> keys_;  // by slot: the key last seen there, by anyone
    std::set<Key> marked_;                  // to be delivered
    std::vector<std::uint32_t> slots_;      // of the turn under way
};

}  // namespace Memtab
