// Policy.h: what the operator has decided about the merge.
#pragma once

#include <map>
#include <set>

#include "L2Rib/Host.h"
#include "L2Rib/Source.h"
#include "Quil/Clock.h"

namespace Agent {

// When a host that moves to and fro is a duplicate address (RFC 7432, 15.1: N moves within M seconds), and what then.
struct DuplicateRules {
    enum class Action { warn, freeze };

    std::uint32_t moves = 5;     // N, at least 2
    Quil::Seconds window = 180;  // M
    Action action = Action::warn;
    Quil::Seconds recovery = 0;   // a frozen host is let go after this time; 0: only by the operator
    Quil::Seconds logEvery = 60;  // what happens more often is summed up in one line

    friend bool operator==(const DuplicateRules&, const DuplicateRules&) = default;
};

struct Policy {
    std::map<L2Rib::Source, std::uint32_t> preferences;  // instead of the defaults; above 0
    std::map<L2Rib::Source, std::uint32_t> quotas;       // hosts of a source that count; absent: all
    Lanx::IpGenAddr ownVtep;                             // 0.0.0.0: none
    std::set<Lanx::IntfId> multihomed;                   // interfaces shared with another switch (RFC 7432, 7.7)
    DuplicateRules duplicates;

    // The preference that counts: a host's own, else the source's, else the default.
    std::uint32_t preference(L2Rib::Source source, const L2Rib::Host& host) const;
    // 0: none.
    std::uint32_t quota(L2Rib::Source source) const;
};

// The default of a source.
std::uint32_t defaultPreference(L2Rib::Source source);

}  // namespace Agent
