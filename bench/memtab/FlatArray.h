// FlatArray.h: the limit: a flat array of records, each under a version word; no key, no search. Entries that are there
// have even numbers, those that are missing odd ones.
#pragma once

#include "Records.h"
#include "SharedFile.h"

namespace bench {

class FlatArray {
 public:
    FlatArray(const std::string& path, std::uint32_t count)
        : count_(count), file_(path, std::size_t(count) * sizeof(Cell)) {}

    void write(const Entry& entry, std::uint32_t generation) {
        store(at(entry.number / 2), valueOf(entry, generation));
    }
    void remove(const Entry& entry) { store(at(entry.number / 2), Value()); }
    bool lookup(const Entry& entry, Value& out) const {
        load(at(entry.number / 2), out);
        return entry.number % 2 == 0;
    }
    template <class F>
    void forEach(F&& visit) const {
        Value value;
        for (std::uint32_t n = 0; n < count_; ++n) {
            load(at(n), value);
            visit(value);
        }
    }
    std::uint64_t bytes() const { return std::uint64_t(count_) * sizeof(Cell); }

 private:
    struct alignas(8) Cell {
        Mem::Word32 version;
        Mem::Word32 pad;
        std::byte value[(sizeof(Value) + 7) / 8 * 8];
    };
    static void store(Cell& cell, const Value& value) { storeVersioned(cell.version, cell.value, value); }
    static void load(const Cell& cell, Value& out) { loadVersioned(cell.version, cell.value, out); }
    Cell& at(std::uint32_t index) const { return reinterpret_cast<Cell*>(file_.base())[index]; }
    const std::uint32_t count_;
    SharedFile file_;
};

}  // namespace bench
