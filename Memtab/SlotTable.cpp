#include "Memtab/SlotTable.h"

#include <algorithm>
#include <cstring>

#include "Memtab/Compatibility.h"
#include "Verro/Exception.h"
#include "Verro/Hash.h"

namespace Memtab::SlotTable {
namespace {

using Mem::Versioned;
using Mem::Atomics::load32;
using Mem::Atomics::store32;
using Quil::cat;
using Quil::hex;

constexpr int errorLevel = 1;

std::uint32_t fieldHash(const Mem::Word32& field) {
    const std::uint32_t value = load32(field);
    return Verro::Util::hash(&value, 4);
}

Quil::String nameOf(const char (&field)[Header::nameSize]) { return {field, strnlen(field, sizeof field)}; }

}  // namespace

void initialize(Slot& slot, const Format& stored) {
    Versioned{0}.next(endOfList, 0).store(slot.link);
    store32(slot.state, 0);
    store32(slot.rhash, 0);
    for (std::uint32_t at = 0; at < stored.valueSize; at += 4) {
        std::uint32_t word;
        std::memcpy(&word, static_cast<const std::byte*>(stored.defaultValue) + at, 4);
        store32(*reinterpret_cast<Mem::Word32*>(slot.value() + at), word);
    }
}

Header::Header(Quil::Trace& debug, std::uint32_t slots, std::uint32_t maximum, FenixId fenixId, const Format& stored) {
    if (stored.valueType.size() >= nameSize) {
        throw Verro::InvalidInitializeException(
            cat("SlotTable::Header() value typename ", stored.valueType, " exceeds ", nameSize, " characters"));
    }
    if (stored.classType.size() >= nameSize) {
        throw Verro::InvalidInitializeException(
            cat("SlotTable::Header() class typename: ", stored.classType, " exceeds ", nameSize, " characters"));
    }
    std::memcpy(magic, magicText, 8);
    std::memset(valueType, 0, nameSize);
    std::memset(classType, 0, nameSize);
    std::memcpy(valueType, stored.valueType.data(), stored.valueType.size());
    std::memcpy(classType, stored.classType.data(), stored.classType.size());
    store32(version, currentVersion);
    store32(fenix, fenixId);
    store32(platform, Compatibility::thisPlatform);
    store32(valueSize, stored.valueSize);
    store32(slotSize, stored.slotSize());
    store32(maxSlots, maximum);
    store32(format, formatParameter);
    store32(hash, checksum());
    store32(occupiedSlots, 0);
    store32(freeSlots, endOfList);
    store32(mostSlots, slots);
    store32(zero, 0);
    Versioned{0}.next(slots, 0).store(numSlots);
    initialize(spare, stored);
    auto* first = reinterpret_cast<std::byte*>(this) + stored.headerSize();
    for (std::uint32_t i = 0; i < slots; ++i) {
        initialize(*reinterpret_cast<Slot*>(first + std::uint64_t(i) * stored.slotSize()), stored);
    }
    trace(debug);
}

std::uint32_t Header::checksum() const {
    return Verro::Util::hash(valueType, nameSize) + Verro::Util::hash(classType, nameSize) + fieldHash(valueSize) +
           fieldHash(slotSize) + fieldHash(maxSlots) + fieldHash(format);
}

void Header::maxSlotsIs(std::uint32_t maximum) {
    if (load32(maxSlots) == maximum) return;
    store32(maxSlots, maximum);
    store32(hash, checksum());
}

bool Header::validate(Quil::Trace& debug, std::uint64_t fileSize, FenixId wantedFenix, Quil::String& reason) const {
    reason = fault(fileSize, wantedFenix);
    if (!reason.empty()) debug.log(errorLevel, [&] { return reason; });
    return reason.empty();
}

// The first check that fails, in the order of the fields; empty when all hold.
Quil::String Header::fault(std::uint64_t fileSize, FenixId wantedFenix) const {
    if (std::memcmp(magic, magicText, 8) != 0) {
        return cat("SlotTable::Header::validate() bad magic: ", hex(magicNumber(magic)));
    }
    if (load32(version) != currentVersion) return cat("SlotTable::Header::validate() bad version: ", load32(version));
    if (wantedFenix != 0 && load32(fenix) != wantedFenix) {
        return cat("SlotTable::validate() bad fenix:", hex(load32(fenix)), " wanted:", hex(wantedFenix));
    }
    if (load32(platform) != Compatibility::thisPlatform) {
        return cat(
            "SlotTable::Header::validate() bad platform specification: ", Compatibility::platformType(load32(platform)),
            " expecting: ", Compatibility::platformType(Compatibility::thisPlatform));
    }
    if (checksum() != load32(hash)) {
        return cat("SlotTable::Header::validate() checksum fail: ", hex(checksum()), " != ", hex(load32(hash)));
    }
    // The counts change while the writer works: judge them by one number of slots, and again when that has moved.
    for (;;) {
        const Versioned count = Versioned::load(numSlots);
        Quil::String found = countFault(fileSize, count.value());
        if (Versioned::load(numSlots) == count) return found;
    }
}

Quil::String Header::countFault(std::uint64_t fileSize, std::uint32_t slots) const {
    const std::uint32_t used = load32(occupiedSlots), free = load32(freeSlots), most = load32(mostSlots);
    if (used > slots) {
        return cat("SlotTable::Header::validate() bad occupiedSlots: ", used, " num slots: ", slots);
    }
    if (free >= slots && free != endOfList) {
        return cat("SlotTable::Header::validate() bad freeSlots: ", free, " slots: ", slots);
    }
    if (most < slots) return cat("SlotTable::Header::validate() bad mostSlots:", most, " numSlots:", slots);
    if (fileSize < headerSize()) {
        return cat("SlotTable::Header::validate() bad header file size: ", fileSize, " wanted:", headerSize());
    }
    const std::uint64_t needed = headerSize() + std::uint64_t(slots) * load32(slotSize);
    if (fileSize < needed) {
        return cat("SlotTable::Header::validate() bad shmem size:", fileSize, " wanted:", needed, " for ", slots,
                   " slots");
    }
    return {};
}

void Header::trace(Quil::Trace& debug) const {
    debug.log(3, [&] {
        return cat("SlotTable::Header()  magic:", hex(magicNumber(magic)), " version:", load32(version),
                   " fenix:", hex(load32(fenix)), " valueSize:", load32(valueSize), " valueType:", nameOf(valueType),
                   " classType:", nameOf(classType), " maxSlots:", load32(maxSlots), " hash:", hex(load32(hash)),
                   " slotSize: ", load32(slotSize), " occupiedSlots:", load32(occupiedSlots),
                   " freeSlots: ", load32(freeSlots), " mostSlots:", load32(mostSlots),
                   " numSlots:", Versioned::load(numSlots).value());
    });
}

Quil::String typeFault(const char* operation, const Header& header, const Format& expected) {
    const auto fault = [&](const char* field, const auto& found, const auto& wanted) {
        return cat(operation, " bad ", field, ": ", found, " wanted: ", wanted);
    };
    if (nameOf(header.valueType) != expected.valueType) {
        return fault("valueType", nameOf(header.valueType), expected.valueType);
    }
    if (nameOf(header.classType) != expected.classType) {
        return fault("classType", nameOf(header.classType), expected.classType);
    }
    if (load32(header.valueSize) != expected.valueSize) {
        return fault("valueSize", load32(header.valueSize), expected.valueSize);
    }
    if (load32(header.slotSize) != expected.slotSize()) {
        return fault("slotSize", load32(header.slotSize), expected.slotSize());
    }
    return {};
}

}  // namespace Memtab::SlotTable
