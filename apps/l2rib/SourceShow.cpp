// l2rib source show: the sources that have announced themselves to the agent.
#include <cstdio>
#include <iostream>

#include "L2Rib/SourceDirEntry.h"
#include "common/HostText.h"
#include "l2rib/AgentView.h"
#include "l2rib/Command.h"

namespace Tool {
namespace {

void print(const L2Rib::AgentSourceDir& directory) {
    int width = 4;
    for (const auto& [name, unused] : directory.source()) width = std::max(width, static_cast<int>(name.size()));
    std::printf("%-*s  %-14s  %-11s  %9s  Flood VLANs  Host table\n", width, "Name", "Source", "Initialized",
                "Max hosts");
    for (const auto& [name, entry] : directory.source()) {
        std::printf("%-*s  %-14s  %-11s  %9u  %11zu  %s\n", width, name.c_str(),
                    Apps::sourceName(entry->source()).c_str(), entry->initialized() ? "yes" : "no",
                    entry->hostTableLen(), entry->vlanFloodSet().size(), entry->hostTableMemtabPath().c_str());
    }
    std::printf("Total %zu source%s\n", directory.source().size(), directory.source().size() == 1 ? "" : "s");
}

Apps::Json jsonOf(const L2Rib::SourceDirEntry& entry) {
    Apps::Json floodVlans = Apps::Json::array();
    for (const auto& [vlanId, unused] : entry.vlanFloodSet()) floodVlans.push_back(vlanId.value());
    return {{"name", entry.name()},
            {"source", Apps::sourceName(entry.source())},
            {"initialized", entry.initialized()},
            {"multiTable", entry.multiTable()},
            {"hostTable", {{"path", entry.hostTableMemtabPath()}, {"length", entry.hostTableLen()}}},
            {"loadBalanceTable", {{"path", entry.lbTableMemtabPath()}, {"length", entry.lbTableLen()}}},
            {"labelTable", {{"path", entry.labelTableMemtabPath()}, {"length", entry.labelTableLen()}}},
            {"destTable", {{"path", entry.destTableMemtabPath()}, {"length", entry.destTableLen()}}},
            {"floodVlans", floodVlans}};
}

}  // namespace

int sourceShow(const Options& options) {
    requireNoWords(options);
    const AgentView directory(options.root, Agent::Places::sources, L2Rib::agentSourceDirFactory("sources"));
    if (options.json) {
        Apps::Json rows = Apps::Json::array();
        for (const auto& [name, entry] : directory->source()) rows.push_back(jsonOf(*entry));
        std::cout << Apps::textOf(Apps::Json{{"schema", 1}, {"rows", rows}, {"total", rows.size()}}) << "\n";
    } else {
        print(*directory);
    }
    flushOutput();
    return directory->source().empty() ? exitNoMatch : exitFound;
}

}  // namespace Tool
