// ConquerReader: a reader's walk of the notification queue.
//
// It remembers the last sequence it has consumed and finds its place by that, never by position: the writer compacts
// the queue into the other file at any time. Since the latest record of every slot always stays in the queue, a reader
// misses nothing however late it comes.
#pragma once

#include <memory>
#include <vector>

#include "Mem/Segment.h"
#include "Memtab/ConquerTable.h"

namespace Memtab {

class L2RIB_EXPORT ConquerReader {
 public:
    bool attach(Quil::Trace& debug, Mem::Directory& directory, FenixId fenix, Quil::String& reason);

    // The last sequence consumed.
    std::uint64_t sequence() const { return sequence_; }
    // Takes everything queued so far as consumed: for a reader about to look at the whole table.
    void skipToEnd();
    // Appends the slots changed since, in order, at most so many, but the moves of one shrink together: none before it
    // has ended, then all of them. Returns whether more may be waiting.
    // Throws CorruptionDetectedException when the queue does not hang together.
    bool poll(std::vector<std::uint32_t>& slots, std::size_t budget);

 private:
    struct View {  // of the current file, good while the current word stays the same
        Mem::Versioned word;
        const ConquerTable::Header* header;
        std::uint32_t end;                     // records below this position are whole
        std::uint64_t corralStart, corralEnd;  // 0: none; 0: open
    };
    View view();
    bool isAmidCorral(const View& v) const;  // some of it is consumed, not all
    bool isCurrent(const View& v) const { return currentWord() == v.word; }
    Mem::Versioned currentWord() const { return Mem::Versioned::load(table(0).current); }
    std::uint32_t firstAfter(const View& v, std::uint64_t sequence) const;
    const ConquerTable::Header& table(std::uint32_t id) const {
        return *reinterpret_cast<const ConquerTable::Header*>(segments_[id]->base());
    }
    std::unique_ptr<Mem::Segment> segments_[2];
    std::uint64_t sequence_ = 0;
};

}  // namespace Memtab
