// l2rib status show, config set: the agent's state, and the switch that enables it.
#include <cstdio>
#include <iostream>

#include "L2Rib/AgentStatus.h"
#include "common/HostText.h"
#include "l2rib/AgentQuestions.h"
#include "l2rib/AgentView.h"
#include "l2rib/Command.h"

namespace Tool {

int statusShow(const Options& options) {
    requireNoWords(options);
    const AgentView status(options.root, Agent::Places::status, L2Rib::policySmStatusFactory("status"));
    const AgentView config(options.root, Agent::Places::config, L2Rib::configFactory("config"));
    const Apps::Json counts = AgentQuestions(options.root).ask({{"counts", true}});
    const Quil::String awaited = Apps::sourceNames(counts.at("awaited").get<std::uint32_t>());
    if (options.json) {
        const Apps::Json all{{"schema", 1},
                             {"agentEnabled", config->agentEnabled()},
                             {"maxLabelId", status->maxLabelId().value()},
                             {"maxLbId", status->maxLbId().value()},
                             {"maxDestId", status->maxDestId().value()},
                             {"awaited", awaited},
                             {"moves", counts.at("moves")},
                             {"duplicates", counts.at("duplicates")},
                             {"conflicts", counts.at("conflicts")},
                             {"conflictsSeen", counts.at("conflictsSeen")}};
        std::cout << Apps::textOf(all) << "\n";
    } else {
        std::cout << "agent                   "
                  << (config->agentEnabled() ? "enabled" : "disabled: the output stays as it is, nothing is merged")
                  << "\nhighest label           " << status->maxLabelId() << "\nhighest load balance    "
                  << status->maxLbId() << "\nhighest destination     " << status->maxDestId()
                  << "\nawaited since restart   " << awaited << "\nmoves of hosts          " << counts.at("moves")
                  << "\nduplicate hosts         " << counts.at("duplicates") << "\nconflicting hosts       "
                  << counts.at("conflicts") << ", " << counts.at("conflictsSeen") << " since the start\n";
    }
    flushOutput();
    return exitFound;
}

int configSet(const Options& options) {
    const auto& words = options.words;
    if (words.size() != 2 || words[0] != "agent-enabled" || (words[1] != "on" && words[1] != "off")) {
        throw Quil::RangeException("agent-enabled on|off is what can be set");
    }
    const bool enabled = words[1] == "on";
    AgentView config(options.root, Agent::Places::config, L2Rib::configFactory("config"));
    const auto wanted = L2Rib::configFactory("config");
    wanted->agentEnabledIs(enabled);
    constexpr std::uint16_t agentEnabled = 1;  // of the attributes, in the order of declaration
    if (!config.ask(*wanted, agentEnabled, [&](const auto& now) { return now.agentEnabled() == enabled; })) {
        throw Quil::SystemException("the agent does not take it (only its own user and root may set it)");
    }
    return exitFound;
}

}  // namespace Tool
