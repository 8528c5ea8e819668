// l2rib host show: the hosts of the output table, by VLAN and MAC.
#include <algorithm>
#include <cstdio>
#include <iostream>

#include "common/HostText.h"
#include "l2rib/Command.h"
#include "l2rib/Selectors.h"

namespace Tool {
namespace {

void requireReadable(const HostTable& table, const std::string& root) {
    const auto& map = table.hosts->hostControl();
    if (!map.isReadable()) throw Quil::SystemException(Quil::cat("no table ", map.name(), " under ", root));
}

void print(const std::vector<Apps::HostView>& rows) {
    std::size_t source = 6, via = 3;
    for (const auto& row : rows) {
        source = std::max(source, row.source.size());
        via = std::max(via, row.via.size());
    }
    const int s = static_cast<int>(source), v = static_cast<int>(via);
    std::printf("VLAN  %-17s  %-*s  %-*s  Pref  Seq  Type\n", "MAC", s, "Source", v, "Via");
    for (const auto& row : rows) {
        std::printf("%4u  %-17s  %-*s  %-*s  %4u  %3u  %s\n", row.vlan, row.mac.c_str(), s, row.source.c_str(), v,
                    row.via.c_str(), row.preference, row.seqNo, row.entryType.c_str());
    }
    std::printf("Total %zu host%s\n", rows.size(), rows.size() == 1 ? "" : "s");
}

}  // namespace

int hostShow(const Options& options) {
    if (options.current) throw Quil::RangeException("is for monitor only", "--current");
    const Selectors selectors(options.words);
    HostTable table(options.root);
    table.mount();
    requireReadable(table, options.root);
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
    if (options.json) {
        Apps::Json rows = Apps::Json::array();
        for (const auto& record : records) {
            rows.push_back(Apps::keyOf(record));
            rows.back().update(Apps::detailsOf(record, names));
        }
        const Apps::Json all{{"schema", 1}, {"table", "host"}, {"rows", rows}, {"total", records.size()}};
        std::cout << Apps::textOf(all) << "\n";
    } else {
        std::vector<Apps::HostView> rows;
        for (const auto& record : records) rows.push_back(Apps::viewOf(record, names));
        print(rows);
    }
    flushOutput();
    return records.empty() ? exitNoMatch : exitFound;
}

}  // namespace Tool
