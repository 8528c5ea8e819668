// The merge of hosts and of flood sets: what the output is told, and when.
#include "agent/FloodMerge.h"
#include "agent/PolicySm.h"
#include "support/Support.h"

namespace {

using namespace Agent;
using namespace L2Rib;

struct Log : HostOutput::NotifieeConst {
    std::string text;
    void onHost(const Bridging::MacVlanPair& key) override {
        HostAndSource record;
        text += notifier()->host(key, record) ? stringValue(record.source()).substr(6) + ";" : "gone;";
    }
    std::string take() { return std::exchange(text, {}); }
};

class PolicySmTest : public testing::Test {
 protected:
    PolicySmTest() {
        log.notifierIs(output);
        policy.sourceIs(sourceLocalStatic, {local, {}});
        policy.sourceIs(sourceBgp, {bgp, {}});
    }
    static Host hostOf(std::uint32_t number, Bridging::EntryType type = Bridging::entryTypeDynamic) {
        Host host(test::keyOf(number));
        host.entryTypeIs(type);
        return host;
    }
    std::string settled() {
        clock->run();
        return log.take();
    }

    Quil::Ptr<Quil::ManualClock> clock = Quil::makePtr<Quil::ManualClock>();
    Quil::Ptr<HostOutput> output = hostOutputFactory("output");
    Quil::Ptr<HostInput> bgp = hostInputFactory("bgp"), local = hostInputFactory("local");
    Log log;
    ObjectOutputs objects{policySmStatusFactory("status")};
    PolicySm policy{clock, output, objects};
};

TEST_F(PolicySmTest, AWithdrawalIsOneUpdateAndNoChangeWritesNothing) {
    const Host fixed = hostOf(1, Bridging::entryTypeStatic);
    local->hostIs(fixed);
    EXPECT_EQ(settled(), "LocalStatic;");
    bgp->hostIs(hostOf(1));  // loses
    EXPECT_EQ(settled(), "");
    Host cpu = hostOf(1);
    cpu.ciDestIs(CiDest(destTypeCpu));
    bgp->hostIs(cpu);
    local->hostDel(fixed.key());
    EXPECT_EQ(settled(), "Bgp;");
    bgp->hostIs(cpu);  // the same bytes, though == of two such hosts would stop the process
    EXPECT_EQ(settled(), "");
    policy.sourceDel(sourceBgp);
    EXPECT_EQ(settled(), "gone;");
}

TEST_F(PolicySmTest, WhatAFillingTableLacksStandsUntilItIsWhole) {
    for (const std::uint32_t n : {1u, 2u, 3u}) bgp->hostIs(hostOf(n));
    EXPECT_EQ(settled(), "Bgp;Bgp;Bgp;");
    policy.isWholeIs(sourceBgp, false);
    bgp->hostDelAll();
    EXPECT_EQ(settled(), "");
    Host changed = hostOf(2);
    changed.preferenceIs(7);
    bgp->hostIs(changed);
    EXPECT_EQ(settled(), "Bgp;");
    local->hostIs(hostOf(3, Bridging::entryTypeStatic));
    local->hostDel(test::keyOf(3));
    EXPECT_EQ(settled(), "");
    bgp->hostIs(hostOf(1));
    policy.isWholeIs(sourceBgp, true);
    EXPECT_EQ(settled(), "gone;");  // the third; the first is as it was
    EXPECT_TRUE(policy.isSettled());
}

TEST_F(PolicySmTest, DisabledTheOutputStaysAsItIs) {
    bgp->hostIs(hostOf(1));
    EXPECT_EQ(settled(), "Bgp;");
    policy.enabledIs(false);
    bgp->hostDel(test::keyOf(1));
    bgp->hostIs(hostOf(2));
    policy.sourceDel(sourceLocalStatic);
    EXPECT_EQ(settled(), "");
    policy.enabledIs(true);
    EXPECT_NE(settled().find("gone;"), std::string::npos);
    EXPECT_TRUE(output->host(test::keyOf(2)).source() == sourceBgp);
    // What another process left in the output is held against the inputs.
    HostAndSource orphan(test::keyOf(9));
    orphan.hostIs(hostOf(9));
    orphan.sourceIs(sourceMlag);
    output->hostIs(orphan);
    log.take();
    policy.takeOver(0);
    EXPECT_EQ(settled(), "gone;");
}

// One key of each source in turn, whatever the other source has waiting; and no more a turn than the quantum.
TEST_F(PolicySmTest, AFloodOfOneSourceDoesNotHoldUpAnother) {
    policy.quantumIs(0);
    for (std::uint32_t n = 0; n < 100; ++n) bgp->hostIs(hostOf(n));
    local->hostIs(hostOf(1000, Bridging::entryTypeStatic));
    EXPECT_EQ(settled(), "Bgp;LocalStatic;");
    EXPECT_EQ(settled(), "Bgp;");
    policy.settle();
    EXPECT_EQ(std::distance(output->hosts().begin(), output->hosts().end()), 101);
}

TEST_F(PolicySmTest, AnotherTableOfASourceReplacesTheFirst) {
    bgp->hostIs(hostOf(1));
    bgp->hostIs(hostOf(2));
    EXPECT_EQ(settled(), "Bgp;Bgp;");
    auto other = hostInputFactory("other");
    other->hostIs(hostOf(2));
    other->hostIs(hostOf(3));
    policy.sourceIs(sourceBgp, {other, {}});
    EXPECT_EQ(settled().size(), std::string("Bgp;gone;").size());
    EXPECT_EQ(output->host(test::keyOf(1)).source(), sourceNone);
}

// A host that comes home wins, by a sequence number that others can be told; and so does one that leaves again.
TEST_F(PolicySmTest, AHostThatComesHomeHasALaterSequenceNumber) {
    auto ports = hostInputFactory("ports");
    Host away = hostOf(1), home = hostOf(1);
    CiDest vtep(destTypeVxlan), port;
    vtep.vtepAddrIs(CiVtepIndex(0), Lanx::IpGenAddr(Quil::String("10.0.0.2")));
    port.intfIs(Lanx::IntfId(7));
    away.ciDestIs(vtep), home.ciDestIs(port);
    const auto awayAt = [&](std::uint32_t seqNo) {
        away.seqNoIs(Keel::Seqno32(seqNo));
        bgp->hostIs(away);
    };
    const auto homeSince = [&](double time) {
        home.lastMoveTimeIs(time);
        ports->hostIs(home);
    };
    const auto winner = [&] {
        settled();
        const auto record = output->host(test::keyOf(1));
        return Quil::cat(stringValue(record.source()).substr(6), " ", record.host().seqNo());
    };
    homeSince(1);  // was there before anyone looked: it has not just appeared
    awayAt(5);
    policy.sourceIs(sourceLocalDynamic, {ports, {}});
    EXPECT_EQ(winner(), "Bgp 5");
    homeSince(2);
    EXPECT_EQ(winner(), "LocalDynamic 6");
    awayAt(5);
    EXPECT_EQ(winner(), "LocalDynamic 6");  // it keeps it
    awayAt(7);
    EXPECT_EQ(winner(), "Bgp 7");
    awayAt(3);  // a source may replace its own row by a lower number
    EXPECT_EQ(winner(), "LocalDynamic 6");
    ports->hostDel(test::keyOf(1));
    EXPECT_EQ(winner(), "Bgp 3");  // a departed row leaves no memory
    awayAt(0xffffffffu);
    homeSince(3);
    EXPECT_EQ(winner(), "Bgp 4294967295");  // there is none later
    bgp->hostDel(test::keyOf(1));
    EXPECT_EQ(winner(), "LocalDynamic 0");
    Policy rules;
    rules.preferences[sourceBgp] = 300;
    awayAt(1);
    EXPECT_EQ(winner(), "Bgp 1");
    homeSince(4);
    EXPECT_EQ(winner(), "LocalDynamic 2");
    policy.policyIs(rules);
    EXPECT_EQ(winner(), "Bgp 1");
}

class FloodMergeTest : public testing::Test {
 protected:
    // "10 all 10.0.0.2 10.0.0.3; mask" of the output.
    std::string merged() {
        clock->run();
        std::string text;
        for (const auto& [vlanId, vlan] : output->vlanFloodSet()) {
            for (const auto& [mac, set] : vlan->floodSet()) {
                std::set<std::string> dests;
                for (const auto& [dest, flag] : set->destSet()) {
                    dests.insert(Quil::cat(" ", dest.key(), ":", dest.vxlan().vtepAddr(), flag ? "" : "-"));
                }
                text += Quil::cat(vlanId, " ", stringValue(set->floodSetType()).substr(12));
                for (const auto& dest : dests) text += dest;
                text += "; ";
            }
        }
        return text + Quil::cat(output->source());
    }
    static Dest vtep(const char* address, std::uint64_t key = 0) {
        return {DestId(key), DestDataVxlan(Lanx::IpGenAddr(Quil::String(address)))};
    }
    Quil::Ptr<SourceDirEntry> entryOf(const char* name, Source source) {
        auto entry = sourceDirEntryFactory(name);
        entry->sourceIs(source);
        return entry;
    }

    const Lanx::EthAddr all{};
    const Bridging::VlanId ten{10}, twenty{20};
    Quil::Ptr<Quil::ManualClock> clock = Quil::makePtr<Quil::ManualClock>();
    Quil::Ptr<FloodSetOutput> output = floodSetOutputFactory("floodSets");
    Quil::Ptr<SourceDirEntry> bgp = entryOf("b", sourceBgp), fixed = entryOf("v", sourceVxlanStatic);
    FloodMerge merge{clock, output};
};

TEST_F(FloodMergeTest, IsTheUnionOfWhatTheSourcesSay) {
    auto set = bgp->vlanFloodSetIs(ten)->floodSetIs(all);
    set->destSetIs(vtep("10.0.0.2", 7), true);
    merge.sourceIs(bgp);
    merge.sourceIs(fixed);
    EXPECT_EQ(merged(), "10 Any 0:10.0.0.2; 1");
    auto other = fixed->vlanFloodSetIs(ten)->floodSetIs(all);
    other->floodSetTypeIs(floodSetTypeAll);
    other->destSetIs(vtep("10.0.0.2"), false);  // one member with the other source's
    other->destSetIs(vtep("10.0.0.3"), false);
    fixed->vlanFloodSetIs(twenty)->floodSetIs(all)->floodSetTypeIs(floodSetTypeAny);
    EXPECT_EQ(merged(), "10 All 0:10.0.0.2 0:10.0.0.3-; 20 Any; 5");
    set->destSetDel(vtep("10.0.0.2", 7));
    EXPECT_EQ(merged(), "10 All 0:10.0.0.2- 0:10.0.0.3-; 20 Any; 5");
    // A child that is replaced by another of its key is followed as well.
    fixed->vlanFloodSetDel(ten);
    fixed->vlanFloodSetIs(ten)->floodSetIs(all)->destSetIs(vtep("10.0.0.4"), true);
    fixed->vlanFloodSetDel(twenty);
    EXPECT_EQ(merged(), "10 Any 0:10.0.0.4; 5");
    bgp->vlanFloodSetDelAll();
    EXPECT_EQ(merged(), "10 Any 0:10.0.0.4; 4");
    merge.sourceDel("v");
    EXPECT_EQ(merged(), "0");
}

TEST_F(FloodMergeTest, WhatASourceSaidStandsWhileItIsNotWholeOrTheAgentDisabled) {
    bgp->vlanFloodSetIs(ten)->floodSetIs(all)->destSetIs(vtep("10.0.0.2"), true);
    merge.sourceIs(bgp);
    EXPECT_EQ(merged(), "10 Any 0:10.0.0.2; 1");
    merge.isWholeIs("b", false);
    bgp->vlanFloodSetDelAll();
    EXPECT_EQ(merged(), "10 Any 0:10.0.0.2; 1");
    bgp->vlanFloodSetIs(ten)->floodSetIs(all)->destSetIs(vtep("10.0.0.3"), true);
    merge.isWholeIs("b", true);
    EXPECT_EQ(merged(), "10 Any 0:10.0.0.3; 1");
    merge.enabledIs(false);
    merge.sourceDel("b");
    EXPECT_EQ(merged(), "10 Any 0:10.0.0.3; 1");
    merge.enabledIs(true);
    EXPECT_EQ(merged(), "0");
}

TEST_F(FloodMergeTest, WhatIsTakenOverStandsUntilItIsToGo) {
    auto set = output->vlanFloodSetIs(ten)->floodSetIs(all);
    set->floodSetTypeIs(floodSetTypeAny);
    set->destSetIs(vtep("10.0.0.9"), true);
    output->sourceIs(sourceBgp);
    merge.enabledIs(false);
    merge.takeOver();
    fixed->vlanFloodSetIs(ten)->floodSetIs(all)->destSetIs(vtep("10.0.0.4"), true);
    merge.sourceIs(fixed);
    EXPECT_EQ(merged(), "10 Any 0:10.0.0.9; 1");
    merge.enabledIs(true);
    EXPECT_EQ(merged(), "10 Any 0:10.0.0.4 0:10.0.0.9; 5");
    merge.takenOverDel();
    EXPECT_EQ(merged(), "10 Any 0:10.0.0.4; 4");
}

}  // namespace
