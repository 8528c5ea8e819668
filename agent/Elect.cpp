#include "agent/Elect.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace Agent {
namespace {

template <class T>
int higherFirst(T a, T b) {
    return a > b ? -1 : a < b ? 1 : 0;
}

}  // namespace

double moveTime(const L2Rib::Host& host) { return std::isnan(host.lastMoveTime()) ? 0.0 : host.lastMoveTime(); }

const char* stepName(Step step) {
    switch (step) {
        case Step::none:
            return "none";
        case Step::onlyCandidate:
            return "only-candidate";
        case Step::eligible:
            return "eligible";
        case Step::preference:
            return "preference";
        case Step::staticFirst:
            return "static-first";
        case Step::seqNo:
            return "seq-no";
        case Step::vtep:
            return "vtep";
        case Step::lastMoveTime:
            return "last-move-time";
        case Step::sourceBit:
            return "source-bit";
    }
    return "?";
}

bool isStatic(Bridging::EntryType entryType) {
    return entryType == Bridging::entryTypeStatic || entryType == Bridging::entryTypeRouter ||
           entryType == Bridging::entryTypeRemoteStatic;
}

bool isLocal(const L2Rib::Host& host) {
    return host.next() == L2Rib::ObjTuple() && host.ciDest().destType() != L2Rib::destTypeVxlan;
}

namespace {

Lanx::IpGenAddr vtepOf(const L2Rib::Host& host, const Policy& policy) {
    const L2Rib::CiDest& dest = host.ciDest();
    if (isLocal(host)) return policy.multihomed.contains(dest.intf()) ? Lanx::IpGenAddr() : policy.ownVtep;
    const auto& vteps = dest.vtepAddr();
    if (vteps.empty() || vteps.count() > vteps.capacity) return {};
    Lanx::IpGenAddr lowest = vteps.member(0);
    vteps.forEach([&](std::uint32_t, const Lanx::IpGenAddr& vtep) { lowest = std::min(lowest, vtep); });
    return lowest;
}

}  // namespace

Candidate candidateOf(L2Rib::Source source, const L2Rib::Host& host, const Policy& policy,
                      const Lanx::IpGenAddr& nextVtep) {
    Candidate candidate{
        .source = source, .host = host, .vtep = host.next() == L2Rib::ObjTuple() ? vtepOf(host, policy) : nextVtep};
    candidate.host.preferenceIs(policy.preference(source, host));
    return candidate;
}

std::pair<int, Step> compare(const Candidate& a, const Candidate& b) {
    const bool aStatic = isStatic(a.host.entryType()), bStatic = isStatic(b.host.entryType());
    if (a.standing != b.standing) return {a.standing < b.standing ? -1 : 1, Step::eligible};
    if (const int order = higherFirst(a.host.preference(), b.host.preference())) {
        return {order, Step::preference};
    }
    if (const int order = higherFirst(aStatic, bStatic)) return {order, Step::staticFirst};
    if (!aStatic) {
        if (const int order = higherFirst(a.host.seqNo().value(), b.host.seqNo().value())) return {order, Step::seqNo};
    }
    if (!(a.vtep == b.vtep)) return {a.vtep < b.vtep ? -1 : 1, Step::vtep};
    if (const int order = higherFirst(moveTime(a.host), moveTime(b.host))) return {order, Step::lastMoveTime};
    const int order = -higherFirst<std::uint32_t>(a.source, b.source);
    return {order, order ? Step::sourceBit : Step::none};
}

Result elect(std::span<const Candidate> candidates) {
    const Candidate *winner = nullptr, *runnerUp = nullptr;
    for (const Candidate& candidate : candidates) {
        if (candidate.standing != Candidate::Standing::eligible) continue;
        if (!winner || compare(candidate, *winner).first < 0) {
            runnerUp = std::exchange(winner, &candidate);
        } else if (!runnerUp || compare(candidate, *runnerUp).first < 0) {
            runnerUp = &candidate;
        }
    }
    if (!winner) return {};
    return {winner, runnerUp ? compare(*winner, *runnerUp).second : Step::onlyCandidate};
}

bool isSamePlace(const L2Rib::Host& a, const L2Rib::Host& b) {
    if (!(a.next() == b.next())) return false;
    return !(a.next() == L2Rib::ObjTuple()) || std::memcmp(&a.ciDest(), &b.ciDest(), sizeof a.ciDest()) == 0;
}

bool haveConflict(std::span<const Candidate> candidates) {
    if (candidates.size() < 2) return false;
    const auto any = [&](bool ofStatic, auto&& holds) {
        return std::any_of(candidates.begin(), candidates.end(), [&](const Candidate& claim) {
            const bool counts = claim.standing == Candidate::Standing::eligible;
            return counts && isStatic(claim.host.entryType()) == ofStatic && holds(claim.host);
        });
    };
    return any(true, [&](const L2Rib::Host& fixed) {
        return any(false, [&](const L2Rib::Host& dynamic) { return !isSamePlace(fixed, dynamic); });
    });
}

}  // namespace Agent
