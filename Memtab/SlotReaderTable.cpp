#include "Memtab/SlotReaderTable.h"

#include <algorithm>
#include <cstring>

#include "Memtab/SlotWriterTable.h"

namespace Memtab {

using Mem::Versioned;
using Mem::Atomics::load32;
using Quil::cat;

namespace {

// Why the file is not of this reader's type, or nothing.
Quil::String typeFault(const SlotTable::Header& header, const SlotTable::Format& expected) {
    const auto differs = [](const char* field, const Quil::String& name) {
        return std::strncmp(field, name.c_str(), SlotTable::Header::nameSize) != 0;
    };
    const auto text = [](const char* field) {
        return std::string_view(field, strnlen(field, SlotTable::Header::nameSize));
    };
    if (differs(header.valueType, expected.valueType)) {
        return cat("SlotReader::attach() bad valueType: ", text(header.valueType), " wanted: ", expected.valueType);
    }
    if (differs(header.classType, expected.classType)) {
        return cat("SlotReader::attach() bad classType: ", text(header.classType), " wanted: ", expected.classType);
    }
    if (load32(header.valueSize) != expected.valueSize) {
        return cat("SlotReader::attach() bad valueSize: ", load32(header.valueSize), " wanted: ", expected.valueSize);
    }
    if (load32(header.slotSize) != expected.slotSize()) {
        return cat("SlotReader::attach() bad slotSize: ", load32(header.slotSize), " wanted: ", expected.slotSize());
    }
    return {};
}

}  // namespace

bool SlotReaderTable::attach(Quil::Trace& debug, Mem::Directory& directory, FenixId fenix,
                             const SlotTable::Format& expected, Quil::String& reason) {
    segment_ = directory.open(SlotWriterTable::fileName);
    if (!segment_) {
        reason = "no slot file";
        return false;
    }
    // A file that grew between mapping and validation is mapped again, whole.
    while (!header().validate(debug, segment_->size(), fenix, reason)) {
        if (!segment_->refresh()) return false;
    }
    reason = typeFault(header(), expected);
    if (!reason.empty()) return false;
    headerSize_ = expected.headerSize();
    slotSize_ = expected.slotSize();
    readCount();
    return true;
}

void SlotReaderTable::readCount() {
    // ORDER slots, with SlotWriterTable::grow: the count first; a mapping made after it covers that many slots.
    count_ = Versioned::load(header().numSlots);
    if (segment_->size() < headerSize_ + std::uint64_t(count_.value()) * slotSize_) segment_->refresh();
    countWord_ = &header().numSlots;
    slots_ = segment_->base() + headerSize_;
    // Whatever the file says, and should it have become shorter: never more than is mapped.
    const std::uint64_t mapped = segment_->size() < headerSize_ ? 0 : (segment_->size() - headerSize_) / slotSize_;
    numSlots_ = static_cast<std::uint32_t>(std::min<std::uint64_t>(count_.value(), mapped));
}

bool SlotReaderTable::checkResize() {
    if (!isStale()) return false;
    readCount();
    return true;
}

}  // namespace Memtab
