// FenixFile.h: the file "fenix" of a table's directory: which incarnation of the writer made the files beside it.
//
//  byte  width  field
//     0      8  magic "MEMTFENX"
//     8      4  version, 1
//    12      4  id of the incarnation: random, never 0
//    16      4  pid of the writer
//    20      4  0
//    24      8  when the writer began, nanoseconds since 1970
//
// It is rewritten in place, never replaced: the writer lock lies on it.
#pragma once

#include "Mem/Files.h"

namespace SharedMem {

using FenixId = std::uint32_t;  // 0: none, or any

struct FenixRecord {
    char magic[8];
    std::uint32_t version;
    FenixId id;
    std::uint32_t pid;
    std::uint32_t zero;
    std::uint32_t startTime[2];  // a 64-bit number
};
static_assert(sizeof(FenixRecord) == 32);

class L2RIB_EXPORT FenixFile {
 public:
    // The id in the file; 0 when there is no valid one.
    static FenixId read(const Quil::String& directory);
    // When the last writer began; 0 when there is no valid one. One that goes on with the files keeps their id.
    static std::uint64_t startTime(const Quil::String& directory);
    // Whether a writer lives: holds the lock.
    static bool writerLives(const Quil::String& directory);

    // The writer's: opens or makes the file and takes the writer lock.
    // Throws InvalidInitializeException when another writer has it; nothing was changed then.
    explicit FenixFile(const Quil::String& directory);
    FenixId id() const { return id_; }
    // Writes the id, or, with 0, a new random one that differs from the old.
    void write(FenixId id = 0);

 private:
    const Quil::String path_;
    const Mem::FileDescriptor file_;
    FenixId id_ = 0;
};

}  // namespace SharedMem
