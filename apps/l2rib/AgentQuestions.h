// AgentQuestions.h: what only the agent knows of a host.
#pragma once

#include <optional>
#include <vector>

#include "L2Rib/HostAndSource.h"
#include "common/Ask.h"

namespace Tool {

// Connected to the agent's socket for questions; raises SystemException when they are to be answered and nobody does.
class AgentQuestions {
 public:
    explicit AgentQuestions(const std::string& root, int timeout = 10000);  // milliseconds
    Apps::Json ask(const Apps::Json& question) const;
    // Of each of the hosts its flags; none when no agent answers.
    std::optional<std::vector<Quil::String>> flagsOf(const std::vector<L2Rib::HostAndSource>& hosts) const;

 private:
    const std::string root_;
    const Apps::AskSocket socket_;
};

}  // namespace Tool
