// BareTable.h: the least that does the work of a shared-memory hash table with readers in other processes: bucket
// words, chains, versioned copies and queue records, and nothing around them. What the engine is measured against.
//
// One file of fixed size; no growth, no validation, no compaction (the queue wraps), no defence against a reader that
// stands on a removed slot.
#pragma once

#include <algorithm>
#include <bit>
#include <vector>

#include "Records.h"
#include "SharedFile.h"

namespace bench {

class BareTable {
 public:
    // Room for so many entries.
    BareTable(const std::string& path, std::uint32_t entries)
        : slots_(std::bit_ceil(entries)),
          records_(std::max<std::uint64_t>(slots_, 1 << 18)),
          file_(path, sizeof(Head) + slots_ * (sizeof(Mem::Word64) + sizeof(Slot)) + records_ * sizeof(Record)) {
        for (std::uint32_t b = 0; b < slots_; ++b) Mem::Atomics::store64(bucket(b), none);
    }

    void write(const Entry& entry, std::uint32_t generation) {
        const Value value = valueOf(entry, generation);
        const std::uint32_t hash = entry.key.hash();
        Mem::Word64* link = find(entry.key, hash);
        const std::uint64_t there = Mem::Atomics::load64(*link);
        if (there != none) {
            storeVersioned(slot(there).version, slot(there).value, value);
            return notify(static_cast<std::uint32_t>(there));
        }
        const std::uint32_t index = allocate();
        Slot& s = slot(index);
        Mem::Atomics::store64(s.link, none);
        Mem::Atomics::store32(s.hash, hash);
        storeVersioned(s.version, s.value, value);
        Mem::Atomics::store64(*link, index);
        notify(index);
    }

    void remove(const Entry& entry) {
        Mem::Word64* link = find(entry.key, entry.key.hash());
        const std::uint64_t index = Mem::Atomics::load64(*link);
        if (index == none) return;
        Mem::Atomics::store64(*link, Mem::Atomics::load64(slot(index).link));
        storeVersioned(slot(index).version, slot(index).value, Value());
        free_.push_back(static_cast<std::uint32_t>(index));
        notify(static_cast<std::uint32_t>(index));
    }

    bool lookup(const Entry& entry, Value& out) const {
        const std::uint32_t hash = entry.key.hash();
        for (std::uint64_t next = Mem::Atomics::load64(bucket(hash & (slots_ - 1))); next != none;) {
            const Slot& s = slot(next);
            if (Mem::Atomics::load32(s.hash) == hash) {
                loadVersioned(s.version, s.value, out);
                if (out.fwkKey() == entry.key) return true;
            }
            next = Mem::Atomics::load64(s.link);
        }
        return false;
    }

    template <class F>
    void forEach(F&& visit) const {
        Value value;
        for (std::uint32_t b = 0; b < slots_; ++b) {
            for (std::uint64_t next = Mem::Atomics::load64(bucket(b)); next != none;) {
                const Slot& s = slot(next);
                loadVersioned(s.version, s.value, value);
                visit(value);
                next = Mem::Atomics::load64(s.link);
            }
        }
    }

    // Visits what was changed after the sequence; returns the last one.
    template <class F>
    std::uint64_t follow(std::uint64_t sequence, F&& visit) const {
        Value value;
        for (const std::uint64_t end = Mem::Atomics::load64(head().sequence); sequence < end;) {
            const Slot& s = slot(Mem::Atomics::load32(records()[sequence++ & (records_ - 1)].slot));
            loadVersioned(s.version, s.value, value);
            visit(value);
        }
        return sequence;
    }

    std::uint64_t bytes() const { return file_.size(); }

 private:
    static constexpr std::uint64_t none = ~std::uint64_t(0);
    struct alignas(8) Head {
        Mem::Word64 sequence;
    };
    struct alignas(8) Slot {
        Mem::Word64 link;
        Mem::Word32 version;
        Mem::Word32 hash;
        std::byte value[(sizeof(Value) + 7) / 8 * 8];
    };
    struct Record {
        Mem::SplitWord64 sequence;
        Mem::Word32 slot;
    };

    // The link that names the entry's slot, or the end of its chain.
    Mem::Word64* find(const Key& key, std::uint32_t hash) const {
        Mem::Word64* link = &bucket(hash & (slots_ - 1));
        Value value;
        for (std::uint64_t next; (next = Mem::Atomics::load64(*link)) != none; link = &slot(next).link) {
            const Slot& s = slot(next);
            if (Mem::Atomics::load32(s.hash) != hash) continue;
            loadVersioned(s.version, s.value, value);
            if (value.fwkKey() == key) break;
        }
        return link;
    }
    std::uint32_t allocate() {
        if (free_.empty()) return used_++;
        const std::uint32_t index = free_.back();
        free_.pop_back();
        return index;
    }
    void notify(std::uint32_t index) {
        Record& record = records()[sequence_ & (records_ - 1)];
        Mem::Atomics::storeSplit(record.sequence, ++sequence_);
        Mem::Atomics::store32(record.slot, index);
        Mem::Atomics::store64(head().sequence, sequence_);
    }
    Head& head() const { return *reinterpret_cast<Head*>(file_.base()); }
    Mem::Word64& bucket(std::uint64_t b) const {
        return reinterpret_cast<Mem::Word64*>(file_.base() + sizeof(Head))[b];
    }
    Slot& slot(std::uint64_t index) const {
        return reinterpret_cast<Slot*>(file_.base() + sizeof(Head) + slots_ * sizeof(Mem::Word64))[index];
    }
    Record* records() const {
        return reinterpret_cast<Record*>(file_.base() + sizeof(Head) + slots_ * (sizeof(Mem::Word64) + sizeof(Slot)));
    }

    const std::uint64_t slots_, records_;
    SharedFile file_;
    std::uint32_t used_ = 0;
    std::vector<std::uint32_t> free_;
    std::uint64_t sequence_ = 0;
};

}  // namespace bench
