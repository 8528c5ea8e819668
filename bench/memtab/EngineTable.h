// EngineTable.h: the engine in the form in which the others are measured.
#pragma once

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "Mem/Shared.h"
#include "Memtab/MemtabReader.h"
#include "Memtab/MemtabWriter.h"
#include "Records.h"

namespace bench {

using OpsType = Memtab::Ops<Key, Value>;

inline Memtab::SlotTable::Format engineFormat() {
    static const Value defaultValue;
    return {L2Rib::HostAndSource::fwkFields().typeName, "bench", sizeof(Value), &defaultValue};
}
inline Quil::Trace& engineTrace() { return Quil::Trace::handler("bench"); }

class EngineWriter {
 public:
    EngineWriter(const std::string& path, const Memtab::Options& options)
        : path_(path), directory_(path), writer_(engineTrace(), "bench", options, engineFormat()) {
        writer_.attach(directory_, 1);
    }
    void write(const Entry& entry, std::uint32_t generation) { writer_.write(valueOf(entry, generation), true); }
    void remove(const Entry& entry) { writer_.remove(entry.key); }
    std::uint64_t bytes() const {
        std::uint64_t sum = 0;
        for (const char* name : {"/slots", "/buckets", "/conquer.1", "/conquer.2"}) {
            struct stat status;
            if (stat((path_ + name).c_str(), &status) == 0) sum += static_cast<std::uint64_t>(status.st_size);
        }
        return sum;
    }

 private:
    const std::string path_;
    Mem::SharedDirectory directory_;
    Memtab::MemtabWriter<Key, Value, OpsType> writer_;
};

// Made in the process that reads.
class EngineReader {
 public:
    explicit EngineReader(const std::string& path) : directory_(path), reader_(engineTrace()) {
        Quil::String reason;
        if (reader_.attach(directory_, 1, engineFormat(), reason)) return;
        std::fprintf(stderr, "bench-memtab: %s\n", reason.c_str());
        std::exit(2);
    }
    bool lookup(const Entry& entry, Value& out) {
        bool found = false;
        reader_.lookup(entry.key, found, &out);
        return found;
    }
    template <class F>
    void forEach(F&& visit) {
        Value value;
        Memtab::ReaderIterHint hint;
        for (bool more = reader_.first(value, hint); more; more = reader_.next(value.fwkKey(), value, hint))
            visit(value);
    }

 private:
    Mem::SharedDirectory directory_;
    Memtab::MemtabReader<Key, Value, OpsType> reader_;
};

}  // namespace bench
