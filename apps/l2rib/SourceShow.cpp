// l2rib source show: the sources that have announced themselves to the agent.
//
// Waiting: hosts whose object leads nowhere. Refused: objects that lead back to themselves. Over quota: hosts that do
// not count.
#include <cstdio>
#include <iostream>

#include "L2Rib/SourceDirEntry.h"
#include "common/HostText.h"
#include "l2rib/AgentQuestions.h"
#include "l2rib/AgentView.h"
#include "l2rib/Command.h"

namespace Tool {
namespace {

// What the merge makes of a source.
struct Merged {
    std::uint64_t waiting = 0, refused = 0, overQuota = 0;
};
using MergedBySource = std::map<L2Rib::Source, Merged>;

MergedBySource mergedSources(const Options& options) {
    MergedBySource merged;
    const Apps::Json counts = AgentQuestions(options.root).ask({{"counts", true}});
    for (const auto& source : counts.at("sources")) {
        merged[L2Rib::Source(source.at("source").get<std::uint32_t>())] = {source.at("waiting").get<std::uint64_t>(),
                                                                           source.at("refused").get<std::uint64_t>(),
                                                                           source.at("overQuota").get<std::uint64_t>()};
    }
    return merged;
}

void print(const L2Rib::AgentSourceDir& directory, MergedBySource merged) {
    int width = 4;
    for (const auto& [name, unused] : directory.source()) width = std::max(width, static_cast<int>(name.size()));
    std::printf("%-*s  %-14s  %-11s  %9s  Waiting  Refused  Over quota  Flood VLANs  Host table\n", width, "Name",
                "Source", "Initialized", "Max hosts");
    for (const auto& [name, entry] : directory.source()) {
        const Merged& of = merged[entry->source()];
        std::printf("%-*s  %-14s  %-11s  %9u  %7ju  %7ju  %10ju  %11zu  %s\n", width, name.c_str(),
                    Apps::sourceName(entry->source()).c_str(), entry->initialized() ? "yes" : "no",
                    entry->hostTableLen(), std::uintmax_t(of.waiting), std::uintmax_t(of.refused),
                    std::uintmax_t(of.overQuota), entry->vlanFloodSet().size(), entry->hostTableMemtabPath().c_str());
    }
    std::printf("Total %zu source%s\n", directory.source().size(), directory.source().size() == 1 ? "" : "s");
}

Apps::Json jsonOf(const L2Rib::SourceDirEntry& entry, const Merged& merged) {
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
            {"hostsWaiting", merged.waiting},
            {"objectsRefused", merged.refused},
            {"hostsOverQuota", merged.overQuota},
            {"floodVlans", floodVlans}};
}

}  // namespace

int sourceShow(const Options& options) {
    requireNoWords(options);
    const AgentView directory(options.root, Agent::Places::sources, L2Rib::agentSourceDirFactory("sources"));
    MergedBySource merged = mergedSources(options);
    if (options.json) {
        Apps::Json rows = Apps::Json::array();
        for (const auto& [name, entry] : directory->source()) rows.push_back(jsonOf(*entry, merged[entry->source()]));
        std::cout << Apps::textOf(Apps::Json{{"schema", 1}, {"rows", rows}, {"total", rows.size()}}) << "\n";
    } else {
        print(*directory, merged);
    }
    flushOutput();
    return directory->source().empty() ? exitNoMatch : exitFound;
}

}  // namespace Tool
