// l2rib table show: what the headers of tables say: sizes, counts, queue.
#include <cstdio>
#include <iostream>

#include "Mem/Shared.h"
#include "Memtab/Summary.h"
#include "SharedMem/FenixFile.h"
#include "common/HostText.h"
#include "l2rib/Command.h"
#include "l2rib/TableFiles.h"

namespace Tool {
namespace {

void print(const TableFiles& table, const Memtab::Summary& s, bool writerLives) {
    const double perEntry = s.occupiedSlots ? double(s.bytes) / s.occupiedSlots : 0;
    std::printf("%s\n", table.name.c_str());
    std::printf("  type       %s of %s (%u bytes in slots of %u)\n", s.classType.c_str(), s.valueType.c_str(),
                s.valueSize, s.slotSize);
    std::printf("  writer     %s, incarnation %08x, %u reader%s\n", writerLives ? "at work" : "none", s.fenix,
                s.numReaders, s.numReaders == 1 ? "" : "s");
    std::printf("  entries    %u in %u slots (expected at most %u, once %u), %u buckets\n", s.occupiedSlots, s.numSlots,
                s.maxSlots, s.mostSlots, s.numBuckets);
    std::printf("  queue      sequence %llu, %u of %u records in %s, consumed by all up to %llu%s\n",
                static_cast<unsigned long long>(s.sequence), s.notifications, s.notificationCapacity,
                s.queueFile ? "conquer.2" : "conquer.1", static_cast<unsigned long long>(s.minSeq),
                s.corralStart ? ", a shrink under way" : "");
    std::printf("  memory     %llu bytes, %.0f an entry\n", static_cast<unsigned long long>(s.bytes), perEntry);
}

Apps::Json jsonOf(const TableFiles& table, const Memtab::Summary& s, bool writerLives) {
    return {{"table", table.name},
            {"classType", s.classType},
            {"valueType", s.valueType},
            {"valueSize", s.valueSize},
            {"slotSize", s.slotSize},
            {"writer", writerLives},
            {"fenix", s.fenix},
            {"readers", s.numReaders},
            {"occupiedSlots", s.occupiedSlots},
            {"numSlots", s.numSlots},
            {"maxSlots", s.maxSlots},
            {"mostSlots", s.mostSlots},
            {"numBuckets", s.numBuckets},
            {"sequence", s.sequence},
            {"minSeq", s.minSeq},
            {"notifications", s.notifications},
            {"notificationCapacity", s.notificationCapacity},
            {"corralStart", s.corralStart},
            {"corralEnd", s.corralEnd},
            {"bytes", s.bytes}};
}

}  // namespace

int tableShow(const Options& options) {
    Apps::Json rows = Apps::Json::array();
    for (const TableFiles& table : findTables(options.root, options.words)) {
        Mem::SharedDirectory directory(table.directory);
        Quil::String reason;
        const auto summary = Memtab::summarize(Quil::Trace::handler("show"), directory, reason);
        if (!summary) throw Quil::SystemException(Quil::cat(table.name, ": ", reason));
        const bool writerLives = SharedMem::FenixFile::writerLives(table.directory);
        if (options.json) {
            rows.push_back(jsonOf(table, *summary, writerLives));
        } else {
            print(table, *summary, writerLives);
        }
    }
    if (options.json) std::cout << Apps::textOf(Apps::Json{{"schema", 1}, {"rows", rows}}) << "\n";
    flushOutput();
    return exitFound;
}

}  // namespace Tool
