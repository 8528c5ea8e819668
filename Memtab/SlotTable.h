// SlotTable: the file "slots" of a table: a header, the spare slot, and the slots that hold the entries.
//
// Owner     The writer process formats, resizes and removes the file; readers map it read-only.
// Units     Sizes in bytes, counts in slots; numbers in the machine's order (a file never leaves its machine).
// Errors    validate() returns false with a reason, written to the trace at level 1 as well.
//
//  byte  width  field          the writer stores it                      a reader loads it
//     0      8  magic          before the file has its name              at attach
//     8      4  version        likewise (so is all up to hash)
//    12      4  fenix          incarnation of the writer
//    16      4  platform       Compatibility::thisPlatform
//    20     64  valueType      type name of the record, NUL-terminated
//    84     64  classType      type name of the table
//   148      4  valueSize      bytes of a record
//   152      4  slotSize       bytes of a slot
//   156      4  maxSlots
//   160      4  format         2; enters the checksum, otherwise unused
//   164      4  hash           checksum of 20 to 163
//   168      4  occupiedSlots  with every insertion and removal          at attach
//   172      4  freeSlots      head of the free list                     at attach
//   176      4  mostSlots      before numSlots                           at attach
//   180      4  0
//   184      8  numSlots       one word, counter +1: after the file has  one word, before and after each attempt
//                              grown
//   192      -  spare slot     before LOOKASIDE is set in a slot         between two equal loads of that slot's state
//
//  slot
//     0      8  link           one word, counter +4                      one word, and again before leaving it
//     8      4  state          before and after the value                before and after copying the value
//    12      4  rhash          before the slot is linked                 with the value
//    16      -  value          while LOOKASIDE is set                    between two equal loads of state
#pragma once

#include <cstddef>
#include <cstring>

#include "Mem/Atomics.h"
#include "Quil/Trace.h"
#include "SharedMem/FenixFile.h"

namespace Memtab {

using SharedMem::FenixId;

// The high half of a link: the index of the next slot, or, with this bit, the end of a chain; the other bits then name
// the bucket at which a walk of the whole table goes on.
constexpr std::uint32_t endOfChain = 0x80000000u;
constexpr std::uint32_t endOfList = 0xFFFFFFFFu;  // of the free list, and of the walk after the last bucket
constexpr std::uint32_t linkStep = 4;             // what each change adds to a link's counter
constexpr std::uint32_t maxIndex = 0x7FFFFFFFu;   // slots of a table at the very most

// The state word of a slot; the bits above count rewrites.
constexpr std::uint32_t occupied = 1;
constexpr std::uint32_t lookaside = 2;

// The eight magic bytes of a file as the one number that messages show in hexadecimal.
inline std::uint64_t magicNumber(const void* bytes) {
    std::uint64_t number;
    std::memcpy(&number, bytes, 8);
    return number;
}

namespace SlotTable {

// What is stored: the same in the writer and in every reader, or they do not share a table.
struct Format {
    Quil::String valueType;
    Quil::String classType;
    std::uint32_t valueSize = 0;
    const void* defaultValue = nullptr;  // valueSize bytes of a default-constructed record

    std::uint32_t slotSize() const { return (16 + valueSize + 7) / 8 * 8; }
    std::uint64_t headerSize() const { return std::uint64_t(192) + slotSize(); }
    std::uint64_t fileSize(std::uint32_t slots) const { return headerSize() + std::uint64_t(slots) * slotSize(); }
};

struct Slot {
    Mem::Word64 link;
    Mem::Word32 state;
    Mem::Word32 rhash;
    // the value, valueSize bytes, and padding to slotSize

    std::byte* value() { return reinterpret_cast<std::byte*>(this) + 16; }
    const std::byte* value() const { return reinterpret_cast<const std::byte*>(this) + 16; }
};
static_assert(sizeof(Slot) == 16 && offsetof(Slot, state) == 8 && offsetof(Slot, rhash) == 12);

struct L2RIB_EXPORT Header {
    static constexpr std::size_t nameSize = 64;  // with the terminator
    static constexpr std::uint32_t currentVersion = 12;
    static constexpr std::uint32_t formatParameter = 2;
    static constexpr char magicText[] = "MEMTBSLT";

    Mem::Word32 magic[2];
    Mem::Word32 version;
    Mem::Word32 fenix;
    Mem::Word32 platform;
    char valueType[nameSize];
    char classType[nameSize];
    Mem::Word32 valueSize;
    Mem::Word32 slotSize;
    Mem::Word32 maxSlots;
    Mem::Word32 format;
    Mem::Word32 hash;
    Mem::Word32 occupiedSlots;
    Mem::Word32 freeSlots;
    Mem::Word32 mostSlots;
    Mem::Word32 zero;
    Mem::Word64 numSlots;
    Slot spare;

    // Formats a header in place, then initialises numSlots slots behind it, on no list.
    // Throws InvalidInitializeException for a name that does not fit; nothing was written then.
    Header(Quil::Trace& debug, std::uint32_t slots, std::uint32_t maximum, FenixId fenixId, const Format& stored);

    // Whether the file may be used; else the reason. A wanted fenix of 0 accepts any incarnation.
    // The writer of an inherited table expects another maximum. A reader that comes between the two stores tries again.
    void maxSlotsIs(std::uint32_t maximum);
    bool validate(Quil::Trace& debug, std::uint64_t fileSize, FenixId wantedFenix, Quil::String& reason) const;
    void trace(Quil::Trace& debug) const;  // one line at level 3
    std::uint64_t headerSize() const { return 192 + std::uint64_t(Mem::Atomics::load32(slotSize)); }

 private:
    std::uint32_t checksum() const;
    Quil::String fault(std::uint64_t fileSize, FenixId wantedFenix) const;
    Quil::String countFault(std::uint64_t fileSize, std::uint32_t slots) const;
};
static_assert(offsetof(Header, version) == 8 && offsetof(Header, fenix) == 12 && offsetof(Header, platform) == 16);
static_assert(offsetof(Header, valueType) == 20 && offsetof(Header, classType) == 84);
static_assert(offsetof(Header, valueSize) == 148 && offsetof(Header, slotSize) == 152);
static_assert(offsetof(Header, maxSlots) == 156 && offsetof(Header, format) == 160 && offsetof(Header, hash) == 164);
static_assert(offsetof(Header, occupiedSlots) == 168 && offsetof(Header, freeSlots) == 172);
static_assert(offsetof(Header, mostSlots) == 176 && offsetof(Header, numSlots) == 184 &&
              offsetof(Header, spare) == 192);

// Why the file does not hold what is expected, or nothing. The header is valid.
L2RIB_EXPORT Quil::String typeFault(const char* operation, const Header& header, const Format& expected);

// Makes a slot free and on no list: link 0/endOfList, state 0, rhash 0, default value.
L2RIB_EXPORT void initialize(Slot& slot, const Format& stored);

}  // namespace SlotTable
}  // namespace Memtab
