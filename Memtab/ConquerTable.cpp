#include "Memtab/ConquerTable.h"

#include <cstring>

#include "Verro/Exception.h"

namespace Memtab::ConquerTable {

using Mem::Versioned;
using Mem::Atomics::load32;
using Mem::Atomics::load64;
using Mem::Atomics::store32;
using Quil::cat;
using Quil::hex;

void Header::format(FenixId fenixId, std::uint32_t capacity) {
    std::memcpy(magic, magicText, 8);
    store32(version, currentVersion);
    store32(fenix, fenixId);
    Versioned{0}.next(capacity, 0).store(notifications);
}

bool Header::validate(Quil::Trace& debug, std::uint64_t size, FenixId wantedFenix, Quil::String& reason) const {
    if (size < fileSize(0)) {
        reason = cat("ConquerTable::validate() bad header file size: ", size, " wanted:", fileSize(0));
    } else if (std::memcmp(magic, magicText, 8) != 0) {
        reason = cat("ConquerTable::validate() bad magic: ", hex(magicNumber(magic)));
    } else if (load32(version) != currentVersion) {
        reason = cat("ConquerTable::validate() bad version: ", load32(version));
    } else if (wantedFenix != 0 && load32(fenix) != wantedFenix) {
        reason = cat("ConquerTable::validate() bad fenix:", hex(load32(fenix)), " wanted:", hex(wantedFenix));
    } else if (const auto capacity = Versioned::load(notifications).value(); size < fileSize(capacity)) {
        reason = cat("ConquerTable::validate() bad shmem size:", size, " wanted:", fileSize(capacity), " for ",
                     capacity, " notifications");
    } else if (const auto tableId = Versioned::load(current).value(); tableId > 1) {
        reason = cat("ConquerTable::validate() bad tableId:", tableId);
    } else {
        reason.clear();
        return true;
    }
    debug.log(1, [&] { return reason; });
    return false;
}

void Header::trace(Quil::Trace& debug) const {
    debug.log(3, [&] {
        return cat("ConquerTable::Header() magic:", hex(magicNumber(magic)), " conquer version: ", load32(version),
                   " fenix:", hex(load32(fenix)), " numReaders:", load32(numReaders),
                   " currentTable:", Versioned::load(current).value(),
                   " notifications:", Versioned::load(notifications).value(), " currentPos:", load32(currentPos),
                   " corralStart:", load64(corralStart), " corralEnd:", load64(corralEnd));
    });
}

std::uint32_t getTable(Versioned current) {
    if (current.value() > 1) {
        throw Verro::CorruptionDetectedException(cat("ConquerTable::getTable() bad tableId: ", current.value()));
    }
    return current.value();
}

}  // namespace Memtab::ConquerTable
