// ConquerTable: the files "conquer.1" and "conquer.2" of a table: the queue of changed slots. One of them is current;
// which one, only conquer.1 says.
//
//  byte  width  field          the writer stores it                        a reader loads it
//     0      8  magic "MEMTBCQR"
//     8      4  version, 7
//    12      4  fenix          before the file has its name                at attach
//    16      8  minSeq         with a compaction, before the switch        -
//    24      4  numReaders     when readers come and go                    by tools
//    28      4  0
//    32      8  current        one word, counter +1: table id 0 or 1;      one word, before the first record of a pass
//                              after the other file is complete            and after each
//    40      8  corralStart    0: none
//    48      8  corralEnd      0: open
//    56      8  notifications  one word, counter +1: records there is      before touching records
//                              room for; after the file has grown
//    64      4  currentPos     after the record below it                   before the records
//    68  12*n   records
//
//  record (4-byte aligned, so its sequence is two words)
//     0      8  sequence       before currentPos passes it, never again    after currentPos
//     8      4  slot           likewise; later once, to make a tombstone   with the sequence
//
// A file is valid from 72 + 12 n bytes on, 4 more than its records take.
#pragma once

#include "Mem/Atomics.h"
#include "Memtab/SlotTable.h"

namespace Memtab::ConquerTable {

constexpr std::uint32_t tombstoneSlot = 0xFFFFFFFFu;
constexpr std::uint64_t recordsOffset = 68;
constexpr std::uint64_t recordSize = 12;
constexpr const char* fileNames[2] = {"conquer.1", "conquer.2"};

constexpr std::uint64_t fileSize(std::uint32_t notifications) { return 72 + recordSize * notifications; }

struct Record {
    Mem::SplitWord64 sequence;
    Mem::Word32 slot;
};
static_assert(sizeof(Record) == 12 && alignof(Record) == 4 && offsetof(Record, slot) == 8);

struct L2RIB_EXPORT Header {
    static constexpr std::uint32_t currentVersion = 7;
    static constexpr char magicText[] = "MEMTBCQR";

    Mem::Word32 magic[2];
    Mem::Word32 version;
    Mem::Word32 fenix;
    Mem::Word64 minSeq;
    Mem::Word32 numReaders;
    Mem::Word32 unused;
    Mem::Word64 current;
    Mem::Word64 corralStart;
    Mem::Word64 corralEnd;
    Mem::Word64 notifications;
    Mem::Word32 currentPos;
    // the records follow at recordsOffset

    // Formats an empty queue in zeroed memory.
    void format(FenixId fenixId, std::uint32_t capacity);
    bool validate(Quil::Trace& debug, std::uint64_t size, FenixId wantedFenix, Quil::String& reason) const;
    void trace(Quil::Trace& debug) const;  // one line at level 3
    Record& record(std::uint32_t position) {
        return *reinterpret_cast<Record*>(reinterpret_cast<std::byte*>(this) + recordsOffset + position * recordSize);
    }
    const Record& record(std::uint32_t position) const { return const_cast<Header*>(this)->record(position); }
};
static_assert(offsetof(Header, version) == 8 && offsetof(Header, fenix) == 12 && offsetof(Header, minSeq) == 16);
static_assert(offsetof(Header, numReaders) == 24 && offsetof(Header, current) == 32);
static_assert(offsetof(Header, corralStart) == 40 && offsetof(Header, corralEnd) == 48);
static_assert(offsetof(Header, notifications) == 56 && offsetof(Header, currentPos) == 64);

// The table id that a current word names; raises corruption for one above 1.
L2RIB_EXPORT std::uint32_t getTable(Mem::Versioned current);

}  // namespace Memtab::ConquerTable
