// Elect.h: who wins: the merge of the sources' claims on one host, as a pure function.
//
// A claim is eligible when it leads somewhere: its interface, VTEP or CPU stands in it, or the object that it names is
// there; and when its source has not more hosts than it may. Of two claims, the first of these that differs decides:
//   1. eligible: the others never win
//   2. higher preference (a host's own, else the policy's for its source, else the default)
//   3. static before dynamic, by entry type: static addresses do not move (RFC 7432, 15.2)
//   4. among dynamics, higher sequence number, unsigned: the later move (RFC 7432, 15 and 15.1)
//   5. lower VTEP address (RFC 7432, 15.1: equal sequence numbers). A local claim has that of this switch, where one is
//      configured and its interface is not multihomed; else it is the lowest, as is one that leads to no VTEP
//   6. later last move (not a number counts as 0)
//   7. lower source bit
// Each step looks at one value of each claim, so the order is total. Only the claims at hand count: departed ones leave
// no memory.
#pragma once

#include <span>

#include "L2Rib/HostAndSource.h"
#include "agent/Policy.h"

namespace Agent {

// Static, router and remote static; a number that is no entry type counts as dynamic.
bool isStatic(Bridging::EntryType entryType);
// On this switch: behind an interface or the CPU, not behind an object or a VTEP.
bool isLocal(const L2Rib::Host& host);

// Of the last move; not a number counts as 0.
double moveTime(const L2Rib::Host& host);

// A claim with the values that count: preference and sequence number of the host are those that the election uses and
// the output carries.
struct Candidate {
    enum class Standing { eligible, waits, overQuota };

    L2Rib::Source source = L2Rib::sourceNone;
    L2Rib::Host host;
    Lanx::IpGenAddr vtep;
    Standing standing = Standing::eligible;
};
// nextVtep: the lowest VTEP that the object leads to which the host names.
Candidate candidateOf(L2Rib::Source source, const L2Rib::Host& host, const Policy& policy,
                      const Lanx::IpGenAddr& nextVtep = {});

enum class Step { none, onlyCandidate, eligible, preference, staticFirst, seqNo, vtep, lastMoveTime, sourceBit };
const char* stepName(Step step);

// Below 0 when a beats b, above 0 when b beats a, and the step that decides; 0 and none for equals.
std::pair<int, Step> compare(const Candidate& a, const Candidate& b);

struct Result {
    const Candidate* winner = nullptr;  // of the span; null when none is eligible
    Step step = Step::none;             // what decided between the winner and the best of the other eligible ones
};
Result elect(std::span<const Candidate> candidates);

// Whether two hosts are reached at the same place: by the same object, or else the same destination, byte for byte,
// since == of two that lead to the CPU would stop the process.
bool isSamePlace(const L2Rib::Host& a, const L2Rib::Host& b);
// Whether an eligible static claim and an eligible dynamic one lead to different places.
bool haveConflict(std::span<const Candidate> candidates);

}  // namespace Agent
