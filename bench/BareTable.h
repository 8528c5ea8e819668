// BareTable: the least that does the work of a shared-memory hash table with readers in other processes: bucket words,
// chains, versioned copies and queue records, and nothing around them. What the engine is measured against.
//
// One file of fixed size; no growth, no removal, no validation, no compaction (the queue wraps).
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "Mem/Atomics.h"

namespace bench {

// A file of shared memory, mapped; removed by the process that made it.
class SharedFile {
 public:
    SharedFile(const std::string& path, std::size_t size) : size_(size) {
        const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
        if (fd < 0 || posix_fallocate(fd, 0, static_cast<off_t>(size)) != 0) std::abort();
        base_ = static_cast<std::byte*>(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
        if (base_ == MAP_FAILED) std::abort();
        close(fd);
        unlink(path.c_str());
        std::memset(base_, 0, size);  // a page touched for the first time would cost more than what is measured
    }
    ~SharedFile() { munmap(base_, size_); }
    std::byte* base() const { return base_; }

 private:
    std::size_t size_;
    std::byte* base_;
};

// The limit: a flat array of records, each under a version word; no key, no search.
template <class Value>
class FlatArray {
 public:
    FlatArray(const std::string& path, std::uint32_t count) : file_(path, std::size_t(count) * sizeof(Cell)) {}
    void write(std::uint32_t index, const Value& value) {
        Cell& cell = at(index);
        const std::uint32_t version = Mem::Atomics::load32(cell.version);
        Mem::Atomics::store32(cell.version, version + 1);
        Mem::Atomics::copyIn<sizeof(Value)>(cell.value, &value);
        Mem::Atomics::store32(cell.version, version + 2);
    }
    void read(std::uint32_t index, Value& out) const {
        const Cell& cell = at(index);
        for (;;) {
            const std::uint32_t version = Mem::Atomics::load32(cell.version);
            Mem::Atomics::copyOut<sizeof(Value)>(&out, cell.value);
            if (Mem::Atomics::load32(cell.version) == version && (version & 1) == 0) return;
        }
    }

 private:
    struct alignas(8) Cell {
        alignas(8) std::byte value[(sizeof(Value) + 7) / 8 * 8];
        Mem::Word32 version;
    };
    Cell& at(std::uint32_t index) const { return reinterpret_cast<Cell*>(file_.base())[index]; }
    SharedFile file_;
};

template <class Key, class Value>
class BareTable {
 public:
    // Both counts are powers of two.
    BareTable(const std::string& path, std::uint32_t slots)
        : slots_(slots), file_(path, sizeof(Head) + slots * (sizeof(Mem::Word64) + sizeof(Slot) + sizeof(Record))) {
        for (std::uint32_t b = 0; b < slots_; ++b) Mem::Atomics::store64(bucket(b), none);
    }

    void write(const Value& value) {
        const std::uint32_t hash = value.fwkKey().hash();
        Mem::Word64* link = &bucket(hash & (slots_ - 1));
        for (std::uint64_t next; (next = Mem::Atomics::load64(*link)) != none; link = &slot(next).link) {
            Slot& s = slot(next);
            if (Mem::Atomics::load32(s.hash) == hash && valueOf(s).fwkKey() == value.fwkKey()) {
                store(s, value);
                return notify(static_cast<std::uint32_t>(next));
            }
        }
        const std::uint32_t index = used_++;
        Slot& s = slot(index);
        Mem::Atomics::store64(s.link, none);
        Mem::Atomics::store32(s.hash, hash);
        store(s, value);
        Mem::Atomics::store64(*link, index);
        notify(index);
    }

    bool lookup(const Key& key, Value& out) const {
        const std::uint32_t hash = key.hash();
        for (std::uint64_t next = Mem::Atomics::load64(bucket(hash & (slots_ - 1))); next != none;) {
            const Slot& s = slot(next);
            if (Mem::Atomics::load32(s.hash) == hash) {
                load(s, out);
                if (out.fwkKey() == key) return true;
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
                load(s, value);
                visit(value);
                next = Mem::Atomics::load64(s.link);
            }
        }
    }

 private:
    static constexpr std::uint64_t none = ~std::uint64_t(0);
    struct alignas(8) Head {
        Mem::Word32 position;
        Mem::Word32 pad;
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

    static void store(Slot& s, const Value& value) {
        const std::uint32_t version = Mem::Atomics::load32(s.version);
        Mem::Atomics::store32(s.version, version + 1);
        Mem::Atomics::copyIn<sizeof(Value)>(s.value, &value);
        Mem::Atomics::store32(s.version, version + 2);
    }
    static void load(const Slot& s, Value& out) {
        for (;;) {
            const std::uint32_t version = Mem::Atomics::load32(s.version);
            Mem::Atomics::copyOut<sizeof(Value)>(&out, s.value);
            if (Mem::Atomics::load32(s.version) == version && (version & 1) == 0) return;
        }
    }
    static Value valueOf(const Slot& s) {
        Value value;
        load(s, value);
        return value;
    }
    void notify(std::uint32_t index) {
        Record& record = records()[sequence_ & (slots_ - 1)];
        Mem::Atomics::storeSplit(record.sequence, ++sequence_);
        Mem::Atomics::store32(record.slot, index);
        Mem::Atomics::store32(head().position, static_cast<std::uint32_t>(sequence_));
    }
    Head& head() const { return *reinterpret_cast<Head*>(file_.base()); }
    Mem::Word64& bucket(std::uint32_t b) const {
        return reinterpret_cast<Mem::Word64*>(file_.base() + sizeof(Head))[b];
    }
    Slot& slot(std::uint64_t index) const {
        return reinterpret_cast<Slot*>(file_.base() + sizeof(Head) + slots_ * sizeof(Mem::Word64))[index];
    }
    Record* records() const {
        return reinterpret_cast<Record*>(file_.base() + sizeof(Head) + slots_ * (sizeof(Mem::Word64) + sizeof(Slot)));
    }

    const std::uint64_t slots_;
    SharedFile file_;
    std::uint32_t used_ = 0;
    std::uint64_t sequence_ = 0;
};

}  // namespace bench
