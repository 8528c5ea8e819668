// l2rib flood show: the merged flood sets.
#include <cstdio>
#include <iostream>

#include "L2Rib/FloodSetOutput.h"
#include "common/HostText.h"
#include "common/SourceJson.h"
#include "l2rib/AgentView.h"
#include "l2rib/Command.h"
#include "l2rib/Selectors.h"

namespace Tool {
namespace {

struct Row {
    Bridging::VlanId vlanId;
    Quil::Ptr<L2Rib::FloodSet> set;
    std::vector<L2Rib::Dest> dests;  // to which traffic goes, ascending
};

std::vector<Row> rowsOf(const L2Rib::FloodSetOutput& output, const Selectors& selectors) {
    std::vector<Row> rows;
    for (const auto& [vlanId, vlan] : output.vlanFloodSet()) {
        for (const auto& [mac, set] : vlan->floodSet()) {
            if (!selectors.match(vlanId, mac)) continue;
            Row row{vlanId, set, {}};
            for (const auto& [dest, flag] : set->destSet()) {
                if (flag) row.dests.push_back(dest);
            }
            std::sort(row.dests.begin(), row.dests.end());
            rows.push_back(std::move(row));
        }
    }
    return rows;
}

Quil::String typeName(const Row& row) { return Apps::hyphenated(stringValue(row.set->floodSetType()), "floodSetType"); }

void print(const std::vector<Row>& rows, std::uint32_t sources, const Apps::InterfaceNames& names) {
    std::printf("VLAN  %-17s  Type  Destinations\n", "MAC");
    for (const Row& row : rows) {
        Quil::String dests;
        for (const auto& dest : row.dests) dests += (dests.empty() ? "" : ", ") + Apps::textOf(dest, names);
        std::printf("%4u  %-17s  %-4s  %s\n", row.vlanId.value(), row.set->macAddr().str().c_str(),
                    typeName(row).c_str(), dests.c_str());
    }
    std::printf("Total %zu flood set%s, of %s (mask %u)\n", rows.size(), rows.size() == 1 ? "" : "s",
                Apps::sourceNames(sources).c_str(), sources);
}

Apps::Json jsonOf(const Row& row, const Apps::InterfaceNames& names) {
    Apps::Json dests = Apps::Json::array();
    for (const auto& dest : row.dests) dests.push_back(Apps::jsonOf(dest, names));
    return {{"vlan", row.vlanId.value()}, {"mac", row.set->macAddr().str()}, {"type", typeName(row)}, {"dests", dests}};
}

}  // namespace

int floodShow(const Options& options) {
    const Selectors selectors(options.words, {"vlan", "mac"});
    const AgentView output(options.root, Agent::Places::floodSets, L2Rib::floodSetOutputFactory("floodSets"));
    const auto names = Apps::InterfaceNames::readFrom(options.root);
    const auto rows = rowsOf(*output, selectors);
    if (options.json) {
        Apps::Json all = Apps::Json::array();
        for (const Row& row : rows) all.push_back(jsonOf(row, names));
        std::cout << Apps::textOf(
                         Apps::Json{{"schema", 1}, {"source", output->source()}, {"rows", all}, {"total", all.size()}})
                  << "\n";
    } else {
        print(rows, output->source(), names);
    }
    flushOutput();
    return rows.empty() ? exitNoMatch : exitFound;
}

}  // namespace Tool
