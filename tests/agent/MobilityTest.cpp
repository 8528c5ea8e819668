// Hosts that move, that are in two places, that are claimed both ways, and that are too many.
#include "agent/PolicySm.h"
#include "support/Support.h"

namespace {

using namespace Agent;
using namespace L2Rib;

const auto dynamic = Bridging::entryTypeDynamic, fixed = Bridging::entryTypeStatic;

class MobilityTest : public testing::Test {
 protected:
    MobilityTest() {
        policy.sourceIs(sourceLocalDynamic, {ports, {}});
        policy.sourceIs(sourceBgp, {bgp, {}});
        clock->run();
        Quil::Trace::handler("Mobility").levelIs(3);
        Quil::Trace::sinkIs([this](const auto&, int, const Quil::String& text) { said.push_back(text); });
    }
    ~MobilityTest() override {
        Quil::Trace::handler("Mobility").levelIs(0);
        Quil::Trace::sinkIs({});
    }
    void portIs(std::uint64_t port, std::uint32_t host = 1, Bridging::EntryType type = dynamic) {
        Host row(test::keyOf(host));
        CiDest place;
        place.intfIs(Lanx::IntfId(port));
        row.ciDestIs(place);
        row.entryTypeIs(type);
        row.lastMoveTimeIs(clock->now());
        ports->hostIs(row);
        clock->run();
    }
    void vtepIs(std::uint32_t address, std::uint32_t seqNo, Bridging::EntryType type = dynamic) {
        Host row(test::keyOf(1));
        CiDest place(destTypeVxlan);
        place.vtepAddrIs(CiVtepIndex(0), Lanx::IpGenAddr::fromIp4(address));
        row.ciDestIs(place);
        row.seqNoIs(Keel::Seqno32(seqNo));
        row.entryTypeIs(type);
        bgp->hostIs(row);
        clock->run();
    }
    void passes(Quil::Seconds time) {
        clock->run();
        clock->nowIs(clock->now() + time);
        clock->run();
        clock->run();  // what time has brought up is elected in the next turn
    }
    void rulesAre(const DuplicateRules& duplicates) {
        rules.duplicates = duplicates;
        policy.policyIs(rules);
        clock->run();
    }
    // "port 3", "bgp 10"; then what is known of the host.
    std::string state(std::uint32_t host = 1) {
        HostAndSource row;
        if (!output->host(test::keyOf(host), row)) return "none";
        std::string text = row.source() == sourceBgp ? Quil::cat("bgp ", row.host().seqNo())
                                                     : Quil::cat("port ", row.host().ciDest().intf().value());
        if (const auto* history = policy.mobility().history(test::keyOf(host))) {
            if (history->isDuplicate) text += " D";
            if (history->isFrozen) text += "F";
        }
        return text + (policy.mobility().isConflict(test::keyOf(host)) ? " C" : "");
    }

    Quil::Ptr<Quil::ManualClock> clock = Quil::makePtr<Quil::ManualClock>();
    Quil::Ptr<HostOutput> output = hostOutputFactory("output");
    Quil::Ptr<HostInput> bgp = hostInputFactory("bgp"), ports = hostInputFactory("ports");
    ObjectOutputs objects{policySmStatusFactory("status")};
    Quil::Ptr<HostOutput> raised = hostOutputFactory("raised");
    PolicySm policy{clock, output, objects, raised};
    Policy rules;
    std::vector<std::string> said;
};

TEST_F(MobilityTest, TheLastMovesAreKeptAndADuplicateIsOneUntilItStandsStill) {
    portIs(1);
    EXPECT_EQ(policy.mobility().history(test::keyOf(1)), nullptr);
    for (std::uint64_t port = 2; port <= 5; ++port) passes(30), portIs(port);  // four moves, the first at 30
    EXPECT_EQ(state(), "port 5");
    passes(179.9 - 90);  // before the timer of the first move expires
    portIs(6);
    EXPECT_EQ(state(), "port 6 D");
    ASSERT_EQ(said.size(), 1u);
    EXPECT_EQ(said[0], Quil::cat("host ", test::keyOf(1), " is in two places: 5 moves within 180 s"));
    passes(179), portIs(7);
    passes(179);
    EXPECT_EQ(state(), "port 7 D");
    passes(1);
    EXPECT_EQ(state(), "port 7");
    for (std::uint64_t port = 8; port <= 11; ++port) passes(1), portIs(port);
    passes(180), portIs(12);  // the timer has expired
    EXPECT_EQ(state(), "port 12");
    const auto& history = *policy.mobility().history(test::keyOf(1));
    EXPECT_EQ(history.moves, 11u);
    ASSERT_EQ(history.last.size(), Mobility::maxKept);
    EXPECT_EQ(history.before.host().ciDest().intf(), Lanx::IntfId(4));
    EXPECT_EQ(history.last[0].to.host().ciDest().intf(), Lanx::IntfId(5));
    EXPECT_EQ(history.last[7].when, clock->now());
    // A host that comes back elsewhere in time has moved; later it is another one.
    ports->hostDel(test::keyOf(1));
    passes(100), portIs(1);
    EXPECT_EQ(history.moves, 12u);
    passes(1000);
    EXPECT_NE(policy.mobility().history(test::keyOf(1)), nullptr);
    ports->hostDel(test::keyOf(1));
    passes(180);
    EXPECT_EQ(policy.mobility().history(test::keyOf(1)), nullptr);
}

TEST_F(MobilityTest, AFrozenDuplicateStaysWhereItIs) {
    rulesAre({.moves = 2, .action = DuplicateRules::Action::freeze, .recovery = 30});
    portIs(1);
    vtepIs(9, 5), portIs(2);
    EXPECT_EQ(state(), "port 2 DF");
    EXPECT_NE(said[0].find("it is frozen where it is"), std::string::npos);
    vtepIs(9, 8), portIs(3), vtepIs(9, 10);
    EXPECT_EQ(state(), "port 2 DF");
    passes(29.9);
    EXPECT_EQ(state(), "port 2 DF");
    passes(0.1);
    EXPECT_EQ(state(), "bgp 10");  // it goes where it should have gone
    portIs(4);
    EXPECT_EQ(state(), "port 4 DF");
    ports->hostDel(test::keyOf(1));
    passes(0);
    EXPECT_EQ(state(), "bgp 10 DF");  // nothing keeps it where it was; now it stays here
    portIs(5);
    EXPECT_EQ(state(), "bgp 10 DF");
    portIs(6, 1, fixed);
    EXPECT_EQ(state(), "port 6 DF C");  // the operator's own word counts
    portIs(7, 1, dynamic);
    EXPECT_EQ(state(), "port 6 DF");
    policy.mobility().clear(test::keyOf(1));
    passes(0);
    EXPECT_EQ(state(), "port 7");
    rulesAre({.moves = 2, .action = DuplicateRules::Action::freeze});
    vtepIs(9, 20), portIs(2), vtepIs(9, 30);
    passes(1e6);
    EXPECT_EQ(state(), "port 2 DF");
    rulesAre({});
    EXPECT_EQ(state(), "bgp 30");
    EXPECT_EQ(policy.mobility().numDuplicates(), 0u);
}

TEST_F(MobilityTest, StaticAgainstDynamicIsCountedAndSaidOncePerInterval) {
    portIs(1, 1, fixed);
    for (std::uint32_t n = 1; n <= 3; ++n) {
        vtepIs(9, n);
        EXPECT_EQ(state(), "port 1 C");
        bgp->hostDel(test::keyOf(1));
        passes(1);
        EXPECT_EQ(state(), "port 1");
    }
    EXPECT_EQ(policy.mobility().conflictsSeen(), 3u);
    vtepIs(9, 9);
    policy.sourceDel(sourceBgp);  // the one who loses goes as a whole
    passes(0);
    EXPECT_EQ(state(), "port 1");
    policy.sourceIs(sourceBgp, {bgp, {}});
    passes(0);
    EXPECT_EQ(state(), "port 1 C");
    bgp->hostDel(test::keyOf(1));
    passes(0);
    EXPECT_EQ(said.size(), 1u);
    passes(60);
    ASSERT_EQ(said.size(), 2u);
    EXPECT_EQ(said[1].find("4 more since then, the last: host "), 0u);
    vtepIs(9, 1, fixed);
    EXPECT_EQ(state(), "port 1");  // both say static
    passes(1000);
    EXPECT_EQ(said.size(), 2u);
}

TEST_F(MobilityTest, HostsOverTheQuotaWait) {
    rules.quotas[sourceLocalDynamic] = 2;
    policy.policyIs(rules);
    for (const std::uint32_t n : {4u, 2u, 3u, 5u}) portIs(1, n);
    const auto& input = *policy.input(sourceLocalDynamic);
    EXPECT_EQ(input.numOverQuota(), 2u);
    EXPECT_EQ(state(4) + state(2) + state(3) + state(5), "port 1port 1nonenone");
    portIs(7, 4);
    ports->hostDel(test::keyOf(2));
    passes(0);
    EXPECT_EQ(input.numOverQuota(), 1u);
    EXPECT_EQ(state(2), "none");
    EXPECT_EQ(state(4), "port 7");
    EXPECT_NE(state(3), state(5));
    // Who has a place keeps it, over another limit and over a restart of the agent.
    rules.quotas[sourceLocalDynamic] = 3;
    policy.policyIs(rules);
    passes(0);
    EXPECT_EQ(state(4) + state(3) + state(5), "port 7port 1port 1");
    rules.quotas[sourceLocalDynamic] = 2;
    policy.policyIs(rules);
    passes(0);
    const std::string two = state(3) + state(4) + state(5);
    {
        PolicySm again(clock, output, objects);
        again.policyIs(rules);
        again.takeOver(0);
        again.sourceIs(sourceLocalDynamic, {ports, {}});
        again.settle();
        EXPECT_EQ(state(3) + state(4) + state(5), two);
    }
    rules.quotas.clear();
    policy.policyIs(rules);
    passes(0);
    EXPECT_EQ(input.numOverQuota(), 0u);
    EXPECT_EQ(state(4) + state(3) + state(5), "port 7port 1port 1");
    rules.quotas[sourceLocalDynamic] = 1;
    policy.policyIs(rules);
    passes(0);
    EXPECT_EQ(input.numOverQuota(), 2u);
    EXPECT_EQ(std::distance(output->hosts().begin(), output->hosts().end()), 1);
}

// The number that a host took when it came home outlives the agent.
TEST_F(MobilityTest, ARaisedSequenceNumberIsTakenOver) {
    vtepIs(9, 5), portIs(1);
    ASSERT_EQ(output->host(test::keyOf(1)).host().seqNo(), Keel::Seqno32(6));
    PolicySm again(clock, output, objects, raised);
    again.takeOver(sourceLocalDynamic | sourceBgp);
    again.sourceIs(sourceBgp, {bgp, {}});
    again.sourceIs(sourceLocalDynamic, {ports, {}});
    again.settle();
    EXPECT_EQ(state(), "port 1");
    EXPECT_EQ(output->host(test::keyOf(1)).host().seqNo(), Keel::Seqno32(6));
    // Also when the others are back before it.
    PolicySm third(clock, output, objects, raised);
    third.takeOver(sourceLocalDynamic | sourceBgp);
    third.sourceIs(sourceBgp, {bgp, {}});
    third.settle();
    EXPECT_EQ(state(), "bgp 5");  // a remembered row does not outvote a present one
    third.sourceIs(sourceLocalDynamic, {ports, {}});
    third.settle();
    EXPECT_EQ(state(), "port 1");
    EXPECT_EQ(output->host(test::keyOf(1)).host().seqNo(), Keel::Seqno32(6));
    // And when it had lost again; until the host moves, or goes, be it while nobody looks.
    vtepIs(9, 7);
    third.settle();
    const auto restart = [&] {
        auto next = std::make_unique<PolicySm>(clock, output, objects, raised);
        next->takeOver(sourceLocalDynamic | sourceBgp);
        next->sourceIs(sourceBgp, {bgp, {}});
        next->sourceIs(sourceLocalDynamic, {ports, {}});
        next->settle();
        return next;
    };
    restart();
    EXPECT_EQ(state(), "bgp 7");
    const HostAndSource kept = raised->host(test::keyOf(1));
    EXPECT_EQ(kept.host().seqNo(), Keel::Seqno32(6));
    auto last = restart();
    bgp->hostDel(test::keyOf(1));
    last->settle();
    EXPECT_EQ(output->host(test::keyOf(1)).host().seqNo(), Keel::Seqno32(6));
    last.reset();
    ports->hostDel(test::keyOf(1));
    restart();
    EXPECT_EQ(state(), "none");
    EXPECT_EQ(raised->hosts().begin(), raised->hosts().end());
    // A source that does not come back has its time, whether its hosts stand or not.
    for (const std::uint32_t awaited : {std::uint32_t(sourceLocalDynamic), 0u}) {
        raised->hostIs(kept);
        PolicySm alone(clock, output, objects, raised);
        alone.takeOver(awaited, sourceLocalDynamic);
        alone.settle();
        EXPECT_EQ(raised->host(test::keyOf(1)), kept);
        alone.awaitedIs(0);
        alone.settle();
        EXPECT_EQ(raised->hosts().begin(), raised->hosts().end());
    }
}

}  // namespace
