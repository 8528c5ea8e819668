// l2rib table check: whether the files of tables hang together; reads them as they lie, without a writer.
#include <cstdio>
#include <iostream>

#include "Mem/KickSocket.h"
#include "Mem/Shared.h"
#include "Memtab/Validator.h"
#include "SharedMem/FenixFile.h"
#include "common/HostText.h"
#include "l2rib/Command.h"
#include "l2rib/TableFiles.h"

namespace Tool {
namespace {

constexpr int tries = 20;  // while a writer is at work, which may be met in the middle of a change

struct Verdict {
    std::string table;
    std::string reason;  // empty: sound
    Memtab::Validator::Where where;
    std::uint32_t members = 0;
    bool writerLives = false;
};

Verdict check(const TableFiles& table) {
    Verdict verdict{table.name, {}, {}};
    Mem::SharedDirectory directory(table.directory);
    const auto fenix = SharedMem::FenixFile::read(table.directory);
    if (fenix == 0) {
        verdict.reason = "the fenix file is not valid";
        verdict.where.file = table.directory + "/fenix";
        return verdict;
    }
    verdict.writerLives = SharedMem::FenixFile::writerLives(table.directory);
    // A writer makes no file shorter while someone is connected who has not said what is mapped.
    const Mem::FileDescriptor connection = Mem::KickSocket::connect(table.directory);
    for (int i = 0; i == 0 || (i < tries && verdict.writerLives && !verdict.reason.empty()); ++i) {
        Memtab::Validator validator(Quil::Trace::handler("check"), table.name);
        validator.validate(directory, fenix, nullptr, verdict.reason);
        verdict.where = validator.where();
        // A file that is not there is known by its name alone.
        if (verdict.where.file.find('/') == std::string::npos) verdict.where.file.insert(0, table.directory + "/");
        verdict.members = validator.members();
    }
    return verdict;
}

void print(const Verdict& v) {
    if (v.reason.empty()) {
        std::printf("%s: sound, %u entr%s\n", v.table.c_str(), v.members, v.members == 1 ? "y" : "ies");
        return;
    }
    std::string where = Quil::cat(v.where.file, ", byte ", v.where.offset);
    if (v.where.slot != Memtab::endOfList) where += Quil::cat(", slot ", v.where.slot);
    std::printf("%s: %s: %s%s\n", v.table.c_str(), where.c_str(), v.reason.c_str(),
                v.writerLives ? " (a writer is at work)" : "");
}

Apps::Json jsonOf(const Verdict& v) {
    Apps::Json row{{"table", v.table}, {"sound", v.reason.empty()}, {"writer", v.writerLives}};
    if (v.reason.empty()) {
        row["entries"] = v.members;
        return row;
    }
    row["reason"] = v.reason;
    row["file"] = v.where.file;
    row["offset"] = v.where.offset;
    if (v.where.slot != Memtab::endOfList) row["slot"] = v.where.slot;
    return row;
}

}  // namespace

int tableCheck(const Options& options) {
    int status = exitFound;
    Apps::Json rows = Apps::Json::array();
    for (const TableFiles& table : findTables(options.root, options.words)) {
        const Verdict verdict = check(table);
        if (!verdict.reason.empty()) status = exitNoMatch;
        if (options.json) {
            rows.push_back(jsonOf(verdict));
        } else {
            print(verdict);
        }
    }
    if (options.json) std::cout << Apps::textOf(Apps::Json{{"schema", 1}, {"rows", rows}}) << "\n";
    flushOutput();
    return status;
}

}  // namespace Tool
