// MemtabShadow: a private copy of a table that another process writes, as its reader was last told of it. Between two
// turns of the event loop nothing in it changes: a consumer that needs one consistent picture mounts a table this way.
//
// With values every lookup and walk is answered from private memory. Without, it knows keys and the slots they were
// last seen in, and takes values from the table: a key that has gone there since is absent.
//
// Order     Ascending (rhash, key), as in the table itself.
// Threads   Event-loop thread.
#pragma once

#include <map>
#include <memory>

#include "Memtab/MemtabReader.h"

namespace Memtab {

template <class Key, class Value, class OpsType>
class MemtabShadow {
 public:
    using Reader = MemtabReader<Key, Value, OpsType>;

    explicit MemtabShadow(bool keepsValues) : keepsValues_(keepsValues) {}

    // Each returns whether there is such an entry and copies it out. The reader is that of the table shadowed.
    bool lookup(Reader& reader, const Key& key, Value& out) const {
        const auto found = entries_.find(Place(key));
        return found != entries_.end() && take(reader, found, out);
    }
    bool first(Reader& reader, Value& out) const { return takeFrom(reader, entries_.begin(), out); }
    // The entry behind the key, whether or not the key is there.
    bool next(Reader& reader, const Key& key, Value& out) const {
        return takeFrom(reader, entries_.upper_bound(Place(key)), out);
    }
    std::size_t size() const { return entries_.size(); }

    // Brings the shadow up to date, one changed key at a time.
    class Syncer {
     public:
        explicit Syncer(MemtabShadow& shadow) : shadow_(shadow) {}
        // Takes the table's word for this key; returns the slot where it is, or endOfList. The slot is looked at anew
        // each time: entries move, slots are reused.
        std::uint32_t sync(Reader& reader, const Key& key) {
            bool found = false;
            Value value;
            reader.lookup(key, found, &value);
            if (!found) {
                shadow_.entries_.erase(Place(key));
                return endOfList;
            }
            Entry& entry = shadow_.entries_[Place(key)];
            entry.slot = reader.lastSlot();
            if (shadow_.keepsValues_) entry.value = std::make_unique<Value>(value);
            return entry.slot;
        }

     private:
        MemtabShadow& shadow_;
    };

 private:
    struct Place {
        std::uint32_t rhash;
        Key key;
        explicit Place(const Key& k) : rhash(Verro::Util::reverse(OpsType::hash(k))), key(k) {}
        bool operator<(const Place& other) const {
            return rhash != other.rhash ? rhash < other.rhash : OpsType::less(key, other.key);
        }
    };
    struct Entry {
        std::uint32_t slot = endOfList;
        std::unique_ptr<Value> value;
    };
    using Entries = std::map<Place, Entry>;

    bool take(Reader& reader, typename Entries::const_iterator at, Value& out) const {
        if (keepsValues_) {
            out = *at->second.value;
            return true;
        }
        if (reader.safeValue(at->second.slot, out) && OpsType::equal(out.fwkKey(), at->first.key)) return true;
        bool found = false;  // it has moved, or is gone
        reader.lookup(at->first.key, found, &out);
        return found;
    }
    bool takeFrom(Reader& reader, typename Entries::const_iterator at, Value& out) const {
        for (; at != entries_.end(); ++at) {
            if (take(reader, at, out)) return true;
        }
        return false;
    }

    const bool keepsValues_;
    Entries entries_;
};

}  // namespace Memtab
