// Elect.h: who wins: the merge of the sources' claims on one host, as a pure function.
//
// A claim beats another by the first of these that differs:
//   1. higher preference (0 means the source's default)
//   2. static before dynamic, by entry type
//   3. among dynamics, higher sequence number, unsigned
//   4. later last move (not a number counts as 0)
//   5. lower source bit
// The order is total. Only the claims at hand count: departed ones leave no memory.
#pragma once

#include <span>

#include "L2Rib/HostAndSource.h"

namespace Agent {

struct Candidate {
    L2Rib::Source source = L2Rib::sourceNone;
    L2Rib::Host host;
};

enum class Step { none, onlyCandidate, preference, staticFirst, seqNo, lastMoveTime, sourceBit };
const char* stepName(Step step);

// The preference that counts: the host's own, or the default of its source.
std::uint32_t effectivePreference(L2Rib::Source source, const L2Rib::Host& host);

// Static, router and remote static; a number that is no entry type counts as dynamic.
bool isStatic(Bridging::EntryType entryType);

// Below 0 when a beats b, above 0 when b beats a, and the step that decides; 0 and none for equals.
std::pair<int, Step> compare(const Candidate& a, const Candidate& b);

struct Result {
    const Candidate* winner = nullptr;  // of the span; null when it is empty
    Step step = Step::none;             // what decided between the winner and the runner-up
};
Result elect(std::span<const Candidate> candidates);

}  // namespace Agent
