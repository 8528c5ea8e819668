// StateFile: what an agent must know of the one before it to go on with its output tables, beside what they hold
// themselves: l2rib/agent/state.json.
#pragma once

#include <optional>

#include "agent/ObjectOutputs.h"

struct AgentState {
    Agent::Identifiers reserved;  // identifiers of objects below these may have been used
    std::uint32_t sources = 0;    // the sources that were merged
};

class StateFile {
 public:
    explicit StateFile(const Quil::String& directory) : path_(directory + "/state.json") {}
    // None when there is none. The range exception, with the file, for one that is damaged.
    std::optional<AgentState> read() const;
    void write(const AgentState& state) const;

 private:
    const Quil::String path_;
};
