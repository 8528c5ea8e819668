// l2rib host show: the hosts of the output table, by VLAN and MAC.
//
// Flags: S static, D duplicate, F frozen, C static and dynamic claims conflict, * others claim it as well.
#include <algorithm>
#include <cstdio>
#include <iostream>

#include "agent/Elect.h"
#include "common/HostText.h"
#include "l2rib/AgentQuestions.h"
#include "l2rib/Command.h"
#include "l2rib/Selectors.h"

namespace Tool {
namespace {

constexpr int patience = 1000;  // milliseconds: the hosts are shown without an agent as well

struct Row {
    Apps::HostView view;
    Quil::String flags;
};

void print(const std::vector<Row>& rows, bool isAllKnown) {
    std::size_t source = 6, via = 3;
    for (const auto& row : rows) {
        source = std::max(source, row.view.source.size());
        via = std::max(via, row.view.via.size());
    }
    const int s = static_cast<int>(source), v = static_cast<int>(via);
    std::printf("VLAN  %-17s  Flags  %-*s  %-*s  Pref  Seq  Type\n", "MAC", s, "Source", v, "Via");
    for (const auto& [row, flags] : rows) {
        std::printf("%4u  %-17s  %-5s  %-*s  %-*s  %4u  %3u  %s\n", row.vlan, row.mac.c_str(), flags.c_str(), s,
                    row.source.c_str(), v, row.via.c_str(), row.preference, row.seqNo, row.entryType.c_str());
    }
    std::printf("Total %zu host%s%s\n", rows.size(), rows.size() == 1 ? "" : "s",
                isAllKnown ? "" : "; no agent answers: of the flags only S is known");
}

}  // namespace

int hostShow(const Options& options) {
    if (options.current) throw Quil::RangeException("is for monitor only", "--current");
    const Selectors selectors(options.words);
    HostTable table(options.root);
    table.mountReadable();
    std::vector<L2Rib::HostAndSource> records;
    for (const auto& record : table.hosts->hosts()) {
        if (selectors.match(record)) records.push_back(record);
    }
    if (table.hosts->hostControl().corruptions()) throw Quil::SystemException("the table is damaged");
    std::sort(records.begin(), records.end(), [](const auto& a, const auto& b) {
        const auto order = [](const auto& r) { return std::pair(r.key().vlanId(), r.key().ethAddr()); };
        return order(a) < order(b);
    });
    const auto names = Apps::InterfaceNames::readFrom(options.root);
    const L2Rib::OutputObjects objects(table.em);
    const auto known = AgentQuestions(options.root, patience).flagsOf(records);
    const auto flagsOf = [&](std::size_t i) {
        return known ? (*known)[i] : Agent::isStatic(records[i].host().entryType()) ? "S" : "";
    };
    if (options.json) {
        Apps::Json rows = Apps::Json::array();
        for (std::size_t i = 0; i < records.size(); ++i) {
            rows.push_back(Apps::keyOf(records[i]));
            rows.back().update(Apps::detailsOf(records[i], names, &objects));
            rows.back()["flags"] = flagsOf(i);
        }
        const Apps::Json all{{"schema", 1},
                             {"table", "host"},
                             {"rows", rows},
                             {"flagsKnown", known ? "SDFC*" : "S"},
                             {"total", records.size()}};
        std::cout << Apps::textOf(all) << "\n";
    } else {
        std::vector<Row> rows;
        for (std::size_t i = 0; i < records.size(); ++i) {
            rows.push_back({Apps::viewOf(records[i], names, &objects), flagsOf(i)});
        }
        print(rows, known.has_value());
    }
    flushOutput();
    return records.empty() ? exitNoMatch : exitFound;
}

}  // namespace Tool
