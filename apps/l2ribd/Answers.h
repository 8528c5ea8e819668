// Answers: what the agent says when it is asked why.
//
//   {"explain": KEY}        {"published": ROW or null, "step": STEP, "claims": [{"row": ROW, "standing": ..., "step":
//   the
//                           one that it lost at, "vtep": ...}, ...], "flags": FLAGS, and of a host that has moved
//                           "moves": {"count": ..., "firstSource": ..., "before": ROW, "last": [{"when": s, "to":
//                           ROW}]}}
//   {"flags": [KEY, ...]}   [FLAGS, ...]
//   {"counts": true}        {"moves": ..., "duplicates": ..., "conflicts": ..., "conflictsSeen": ..., "awaited": mask,
//                           "sources": [{"source": bit, "waiting": ..., "refused": ..., "overQuota": ...}]}
//   {"clear": KEY}, {"clear": null}   {"cleared": how many}: the host, all hosts are duplicates no more
//
// KEY is a host's MAC and VLAN as text, ROW an output row as it lies in the table, in hexadecimal; FLAGS are letters: S
// static, D duplicate, F frozen, C conflict, * there are other claims. Times are CLOCK_BOOTTIME.
#pragma once

#include "agent/PolicySm.h"
#include "common/Ask.h"

class Answers {
 public:
    explicit Answers(Agent::PolicySm& policy) : policy_(policy) {}
    Apps::Json operator()(const Apps::Json& question, bool isOwner);

 private:
    Apps::Json explain(const Bridging::MacVlanPair& key) const;
    Apps::Json counts() const;
    std::size_t clear(const Apps::Json& key);  // how many duplicates there were
    Quil::String flags(const Bridging::MacVlanPair& key) const;
    Quil::String flags(const Bridging::MacVlanPair& key, const Agent::PolicySm::Explanation& explanation) const;

    Agent::PolicySm& policy_;
};
