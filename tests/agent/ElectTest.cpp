// The election.
#include <algorithm>
#include <cmath>

#include "agent/Elect.h"
#include "support/Support.h"

namespace {

using namespace Agent;
using Bridging::EntryType;

const Bridging::MacVlanPair key("02:aa:aa:aa:aa:01/10");

Candidate claim(L2Rib::Source source, EntryType type = Bridging::entryTypeDynamic, std::uint32_t seqNo = 0,
                double moved = 0, std::uint32_t preference = 0) {
    L2Rib::Host host(key);
    host.entryTypeIs(type);
    host.seqNoIs(Keel::Seqno32(seqNo));
    host.lastMoveTimeIs(moved);
    host.preferenceIs(preference);
    return candidateOf(source, host, Policy());
}

TEST(Elect, DecidesByTheFirstStepThatDiffers) {
    using namespace L2Rib;
    const auto dynamic = Bridging::entryTypeDynamic, fixed = Bridging::entryTypeStatic;
    const double nan = std::nan("");
    const struct {
        Candidate winner, loser;
        Step step;
    } cases[] = {
        {claim(sourceRouterMac, dynamic), claim(sourceLocalStatic, fixed), Step::preference},
        {claim(sourceLocalStatic), claim(sourceVxlanStatic), Step::preference},
        {claim(sourceDot1x), claim(sourceMss), Step::preference},
        {claim(sourceMss), claim(sourceBgp), Step::preference},
        {claim(sourceMlag, dynamic, 0, 0, 251), claim(sourceRouterMac), Step::preference},
        {claim(sourceMlag, fixed), claim(sourceBgp, dynamic, 9, 9), Step::staticFirst},
        {claim(sourceMlag, Bridging::entryTypeRemoteStatic), claim(sourceBgp, Bridging::entryTypeRemote),
         Step::staticFirst},
        {claim(sourceMlag, dynamic, 0xffffffffu), claim(sourceBgp, dynamic, 1, 9), Step::seqNo},
        {claim(sourceMlag, fixed, 0, 2), claim(sourceBgp, fixed, 9, 1), Step::lastMoveTime},
        {claim(sourceMlag, dynamic, 1, 2), claim(sourceBgp, dynamic, 1, 1), Step::lastMoveTime},
        {claim(sourceMlag, dynamic, 1, 1), claim(sourceBgp, dynamic, 1, nan), Step::lastMoveTime},
        {claim(sourceBgp, dynamic, 1, nan), claim(sourceMlag, dynamic, 1, 0), Step::sourceBit},
        {claim(sourceMlag, dynamic), claim(sourceTestProto4, static_cast<EntryType>(77)), Step::sourceBit},
    };
    for (const auto& [winner, loser, step] : cases) {
        const Candidate both[] = {loser, winner};
        const Result result = elect(both);
        EXPECT_EQ(result.winner, &both[1]) << stepName(step);
        EXPECT_EQ(result.step, step) << stepName(result.step);
    }
    EXPECT_EQ(elect({}).winner, nullptr);
    const Candidate one[] = {claim(sourceBgp)};
    EXPECT_EQ(elect(one).step, Step::onlyCandidate);
}

// Equal sequence numbers: the lower VTEP, where this switch's own ports have its address.
TEST(Elect, TheLowerVtepWinsAndLocalClaimsHaveThisSwitchsOwn) {
    using namespace L2Rib;
    const auto behind = [](Source source, const char* vtep, const Policy& policy, std::uint64_t intf = 0) {
        Host host(key);
        CiDest dest(vtep ? destTypeVxlan : destTypeIntf);
        if (vtep) dest.vtepAddrIs(CiVtepIndex(0), Lanx::IpGenAddr(Quil::String(vtep)));
        dest.intfIs(Lanx::IntfId(intf));
        host.ciDestIs(dest);
        return candidateOf(source, host, policy);
    };
    const auto winner = [](const Candidate& a, const Candidate& b) {
        return compare(a, b).first < 0 ? a.source : b.source;
    };
    Policy policy;
    const auto remote = behind(sourceMlag, "10.0.0.2", policy), higher = behind(sourceBgp, "10.0.0.10", policy);
    EXPECT_EQ(winner(higher, remote), sourceMlag);
    EXPECT_EQ(compare(higher, remote).second, Step::vtep);
    EXPECT_EQ(winner(behind(sourceLocalDynamic, nullptr, policy, 7), remote), sourceLocalDynamic);
    policy.ownVtep = Lanx::IpGenAddr(Quil::String("10.0.0.3"));
    EXPECT_EQ(winner(behind(sourceLocalDynamic, nullptr, policy, 7), remote), sourceMlag);
    EXPECT_EQ(winner(behind(sourceLocalDynamic, nullptr, policy, 7), higher), sourceLocalDynamic);
    policy.multihomed.insert(Lanx::IntfId(7));
    EXPECT_EQ(winner(behind(sourceLocalDynamic, nullptr, policy, 7), remote), sourceLocalDynamic);
    policy.preferences[sourceBgp] = 101;
    EXPECT_EQ(winner(behind(sourceBgp, "10.0.0.10", policy), remote), sourceBgp);
}

// Every claim there can be of a few values each: the order is antisymmetric and transitive, and who wins does not
// depend on the order of the candidates.
TEST(Elect, IsATotalOrder) {
    std::vector<Candidate> all;
    std::uint32_t bit = 1;
    for (const auto type : {Bridging::entryTypeDynamic, Bridging::entryTypeStatic}) {
        for (const std::uint32_t preference : {0u, 150u}) {
            for (const std::uint32_t seqNo : {0u, 0xffffffffu}) {
                for (const double moved : {0.0, 1.0, std::nan("")}) {
                    all.push_back(claim(static_cast<L2Rib::Source>(bit), type, seqNo, moved, preference));
                    bit = bit == 0x80000000u ? 1 : bit * 2;
                }
            }
        }
    }
    for (const auto& a : all) {
        for (const auto& b : all) {
            ASSERT_EQ(compare(a, b).first, -compare(b, a).first);
            for (const auto& c : all) {
                if (compare(a, b).first < 0 && compare(b, c).first < 0) {
                    ASSERT_LT(compare(a, c).first, 0);
                }
            }
        }
    }
    std::vector<Candidate> five(all.begin(), all.begin() + 5);
    const auto bySource = [](const Candidate& a, const Candidate& b) { return a.source < b.source; };
    const L2Rib::Source winner = elect(five).winner->source;
    while (std::next_permutation(five.begin(), five.end(), bySource)) ASSERT_EQ(elect(five).winner->source, winner);
}

}  // namespace
