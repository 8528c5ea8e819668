#include "Memtab/ConquerReader.h"

#include <algorithm>

#include "Verro/Exception.h"

namespace Memtab {

using ConquerTable::Record;
using ConquerTable::tombstoneSlot;
using Mem::Versioned;
using Mem::Atomics::load32;
using Mem::Atomics::load64;
using Mem::Atomics::loadSplit;
using Quil::cat;

bool ConquerReader::attach(Quil::Trace& debug, Mem::Directory& directory, FenixId fenix, Quil::String& reason) {
    for (std::uint32_t id = 0; id < 2; ++id) {
        segments_[id] = directory.open(ConquerTable::fileNames[id]);
        if (!segments_[id]) {
            reason = cat("no file ", ConquerTable::fileNames[id]);
            return false;
        }
        while (!table(id).validate(debug, segments_[id]->size(), fenix, reason)) {
            if (!segments_[id]->refresh()) return false;
        }
    }
    return true;
}

ConquerReader::View ConquerReader::view() {
    for (;;) {
        const Versioned word = currentWord();
        const std::uint32_t id = ConquerTable::getTable(word);
        const std::uint32_t capacity = Versioned::load(table(id).notifications).value();
        // The file has grown before its capacity says so.
        if (segments_[id]->size() < ConquerTable::fileSize(capacity)) segments_[id]->refresh();
        // ORDER corral, with ConquerWriter::corralIs: before the position, so that a corral that has an end lies below
        // it; one that opens between the two is noticed by its start.
        const std::uint64_t start = load64(table(id).corralStart), stop = load64(table(id).corralEnd);
        // ORDER queue, with ConquerWriter::notify: the records below this position are whole.
        const std::uint32_t end = load32(table(id).currentPos);
        if (!(currentWord() == word) || load64(table(id).corralStart) != start) continue;
        if (end > capacity || segments_[id]->size() < ConquerTable::fileSize(capacity)) {
            throw Verro::CorruptionDetectedException(
                cat("ConquerReader::view() pos:", end, " max:", capacity, " file size:", segments_[id]->size()));
        }
        return {word, &table(id), end, start, stop};
    }
}

// The position of the first record after the sequence. Sequences ascend; a file being rewritten may give nonsense,
// which the caller notices by the current word.
std::uint32_t ConquerReader::firstAfter(const View& v, std::uint64_t sequence) const {
    std::uint32_t low = 0, high = v.end;
    while (low < high) {
        const std::uint32_t middle = low + (high - low) / 2;
        if (loadSplit(v.header->record(middle).sequence) > sequence) {
            high = middle;
        } else {
            low = middle + 1;
        }
    }
    return low;
}

void ConquerReader::skipToEnd() {
    for (;;) {
        const View v = view();
        // The last record is the latest of its slot and so never dropped: it carries the writer's sequence.
        const std::uint64_t last = v.end == 0 ? 0 : loadSplit(v.header->record(v.end - 1).sequence);
        if (!isCurrent(v)) continue;
        sequence_ = last;
        return;
    }
}

bool ConquerReader::poll(std::vector<std::uint32_t>& slots, std::size_t budget) {
    std::size_t taken = 0;
    for (;;) {
        const View v = view();
        std::uint32_t position = firstAfter(v, sequence_);
        bool held = false;
        for (; position < v.end && (taken < budget || isAmidCorral(v)); ++position) {
            const Record& record = v.header->record(position);
            const std::uint64_t sequence = loadSplit(record.sequence);
            const std::uint32_t slot = load32(record.slot);
            held = v.corralStart != 0 && v.corralEnd == 0 && sequence >= v.corralStart;
            if (held) break;
            // ORDER switch, with ConquerWriter::switchTo: had the file been reused under us, the word would differ.
            if (!isCurrent(v)) break;
            if (sequence <= sequence_) {
                throw Verro::CorruptionDetectedException(
                    cat("ConquerReader::poll() sequence ", sequence, " after ", sequence_, " at ", position));
            }
            sequence_ = sequence;
            if (slot == tombstoneSlot) continue;
            slots.push_back(slot);
            ++taken;
        }
        if (isCurrent(v)) return position < v.end && !held;
    }
}

bool ConquerReader::isAmidCorral(const View& v) const {
    return v.corralStart != 0 && sequence_ >= v.corralStart && sequence_ < v.corralEnd;
}

}  // namespace Memtab
