// l2rib reader show: who reads the tables, and how far behind each is, as their writers know it.
#include <cstdio>
#include <iostream>

#include "Mem/KickQuery.h"
#include "common/HostText.h"
#include "l2rib/Command.h"
#include "l2rib/TableFiles.h"

namespace Tool {
namespace {

constexpr int answerTimeout = 2000;  // milliseconds

void print(const TableFiles& table, const Mem::ReaderList& list) {
    for (const Mem::KickReader& r : list.readers) {
        std::printf("%-24s  %8u  %-20s  %10llu  %6llu  %5u s\n", table.name.c_str(), r.pid, r.name,
                    static_cast<unsigned long long>(r.sequence),
                    static_cast<unsigned long long>(list.sequence - r.sequence), r.age);
    }
    if (list.readers.empty()) std::printf("%-24s  no reader\n", table.name.c_str());
}

}  // namespace

int readerShow(const Options& options) {
    const auto tables = findTables(options.root, options.words);
    bool any = false;
    Apps::Json rows = Apps::Json::array();
    if (!options.json) {
        std::printf("%-24s  %8s  %-20s  %10s  %6s  %7s\n", "Table", "PID", "Name", "Sequence", "Behind", "Age");
    }
    for (const TableFiles& table : tables) {
        const auto list = Mem::askForReaders(table.directory, answerTimeout);
        any = any || (list && !list->readers.empty());
        if (!options.json) {
            list ? print(table, *list) : void(std::printf("%-24s  no writer\n", table.name.c_str()));
            continue;
        }
        Apps::Json readers = Apps::Json::array();
        if (list) {
            for (const Mem::KickReader& r : list->readers) {
                readers.push_back({{"pid", r.pid},
                                   {"name", r.name},
                                   {"sequence", r.sequence},
                                   {"behind", list->sequence - r.sequence},
                                   {"age", r.age},
                                   {"sleeping", r.sleeping != 0}});
            }
        }
        rows.push_back({{"table", table.name}, {"writer", list.has_value()}, {"readers", readers}});
    }
    if (options.json) std::cout << Apps::textOf(Apps::Json{{"schema", 1}, {"rows", rows}}) << "\n";
    flushOutput();
    return any ? exitFound : exitNoMatch;
}

}  // namespace Tool
