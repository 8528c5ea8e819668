// l2rib status show, config set: the agent's state, and the switch that enables it.
#include <cstdio>
#include <iostream>

#include "L2Rib/AgentStatus.h"
#include "common/HostText.h"
#include "l2rib/AgentView.h"
#include "l2rib/Command.h"

namespace Tool {

int statusShow(const Options& options) {
    requireNoWords(options);
    const AgentView status(options.root, Agent::Places::status, L2Rib::policySmStatusFactory("status"));
    const AgentView config(options.root, Agent::Places::config, L2Rib::configFactory("config"));
    if (options.json) {
        const Apps::Json all{{"schema", 1},
                             {"agentEnabled", config->agentEnabled()},
                             {"maxLabelId", status->maxLabelId().value()},
                             {"maxLbId", status->maxLbId().value()},
                             {"maxDestId", status->maxDestId().value()}};
        std::cout << Apps::textOf(all) << "\n";
    } else {
        std::cout << "agent                   "
                  << (config->agentEnabled() ? "enabled" : "disabled: the output stays as it is, nothing is merged")
                  << "\nhighest label           " << status->maxLabelId() << "\nhighest load balance    "
                  << status->maxLbId() << "\nhighest destination     " << status->maxDestId() << "\n";
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
