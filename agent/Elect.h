// Elect.h: who wins: the merge of the sources' claims on one host, as a pure function.
//
// A claim is eligible when it leads somewhere: its interface, VTEP or CPU stands in it, or the object that it names is
// there. Of two eligible ones, the first of these that differs decides:
//   1. higher preference (a host's own, else the policy's for its source, else the default)
//   2. static before dynamic, by entry type: static addresses do not move (RFC 7432, 15.2)
//   3. among dynamics, higher sequence number, unsigned: the later move (RFC 7432, 15 and 15.1)
//   4. lower VTEP address (RFC 7432, 15.1: equal sequence numbers). A local claim has that of this switch, where one is
//      configured and its interface is not multihomed; else it is the lowest, as is one that leads to no VTEP
//   5. later last move (not a number counts as 0)
//   6. lower source bit
// Each step looks at one value of each claim, so the order is total. Only the claims at hand count: departed ones leave
// no memory.
#pragma once

#include <map>
#include <set>
#include <span>

#include "L2Rib/HostAndSource.h"

namespace Agent {

// What the operator has decided.
struct Policy {
    std::map<L2Rib::Source, std::uint32_t> preferences;  // instead of the defaults; above 0
    Lanx::IpGenAddr ownVtep;                             // 0.0.0.0: none
    std::set<Lanx::IntfId> multihomed;                   // interfaces shared with another switch (RFC 7432, 7.7)

    // The preference that counts.
    std::uint32_t preference(L2Rib::Source source, const L2Rib::Host& host) const;
};

// The default of a source.
std::uint32_t defaultPreference(L2Rib::Source source);

// Static, router and remote static; a number that is no entry type counts as dynamic.
bool isStatic(Bridging::EntryType entryType);
// On this switch: behind an interface or the CPU, not behind an object or a VTEP.
bool isLocal(const L2Rib::Host& host);

// A claim with the values that count: preference and sequence number of the host are those that the election uses and
// the output carries.
struct Candidate {
    L2Rib::Source source = L2Rib::sourceNone;
    L2Rib::Host host;
    Lanx::IpGenAddr vtep;
};
// nextVtep: the lowest VTEP that the object leads to which the host names.
Candidate candidateOf(L2Rib::Source source, const L2Rib::Host& host, const Policy& policy,
                      const Lanx::IpGenAddr& nextVtep = {});

enum class Step { none, onlyCandidate, preference, staticFirst, seqNo, vtep, lastMoveTime, sourceBit };
const char* stepName(Step step);

// Below 0 when a beats b, above 0 when b beats a, and the step that decides; 0 and none for equals.
std::pair<int, Step> compare(const Candidate& a, const Candidate& b);

struct Result {
    const Candidate* winner = nullptr;  // of the span; null when it is empty
    Step step = Step::none;             // what decided between the winner and the runner-up
};
Result elect(std::span<const Candidate> candidates);

}  // namespace Agent
