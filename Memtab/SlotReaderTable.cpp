#include "Memtab/SlotReaderTable.h"

#include <algorithm>

#include "Memtab/SlotWriterTable.h"

namespace Memtab {

using Mem::Versioned;

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
    reason = SlotTable::typeFault("SlotReader::attach()", header(), expected);
    if (!reason.empty()) return false;
    headerSize_ = expected.headerSize();
    slotSize_ = expected.slotSize();
    readCount();
    return true;
}

void SlotReaderTable::readCount() {
    // ORDER slots, with SlotWriterTable::grow: the count first; a mapping made after it covers that many slots.
    const Versioned count = Versioned::load(header().numSlots);
    segment_->refresh();  // always: a file that was made shorter must not be believed to be as long as it was
    count_ = count;       // taken only when the mapping fits it: a refresh may fail
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
