// What a source's groups, labels and destinations become in the output: in any order of arrival and departure, with
// holes, circles and absences; and what a change of one costs.
#include <algorithm>
#include <numeric>
#include <random>

#include "agent/PolicySm.h"
#include "support/Support.h"

namespace {

using namespace Agent;
using namespace L2Rib;

ObjTuple lb(std::uint64_t id) { return {ObjId(id), tableTypeLoadBalance}; }
ObjTuple label(std::uint64_t id) { return {ObjId(id), tableTypeLabel}; }
ObjTuple dest(std::uint64_t id) { return {ObjId(id), tableTypeDest}; }

struct Counter : LoadBalanceOutput::NotifieeConst, HostOutput::NotifieeConst {
    int groups = 0, hosts = 0;
    void onLb(const LoadBalanceId&) override { ++groups; }
    void onHost(const Bridging::MacVlanPair&) override { ++hosts; }
};

class ObjectsTest : public testing::Test {
 protected:
    ObjectsTest() {
        policy.sourceIs(sourceBgp, tables);
        counter.LoadBalanceOutput::NotifieeConst::notifierIs(objects.loadBalances());
        counter.HostOutput::NotifieeConst::notifierIs(output);
    }
    void hostIs(std::uint32_t number, const ObjTuple& next) {
        Host host(test::keyOf(number));
        host.nextIs(next);
        tables.hosts->hostIs(host);
    }
    void lbIs(std::uint64_t id, const std::vector<ObjTuple>& next) {
        LoadBalance group{LoadBalanceId(id)};
        for (std::uint8_t i = 0; i < next.size(); ++i) group.nextIs(EcmpIndex(i), next[i]);
        tables.objects.loadBalances->lbIs(group);
    }
    void labelIs(std::uint64_t id, const ObjTuple& next, std::uint32_t value = 100) {
        Label row{LabelId(id)};
        row.labelIs(Lanx::MplsLabel(value));
        row.nextIs(next);
        tables.objects.labels->labelIs(row);
    }
    void destIs(std::uint64_t id) {
        tables.objects.dests->destIs(
            Dest(DestId(id), DestDataVxlan(Lanx::IpGenAddr::fromIp4(0x0a000000u + static_cast<std::uint32_t>(id)))));
    }

    // What an output tuple stands for, all the way down: "LB 7{Label 1{Dest 1:10.0.0.1},-}".
    std::string chain(const ObjTuple& out) const {
        LoadBalanceAndSource group;
        LabelAndSource row;
        DestAndSource end;
        if (out == ObjTuple()) return "-";
        if (out.tableType() == tableTypeLoadBalance && objects.loadBalances()->lb(out.lbId(), group)) {
            std::string text;
            group.lb().next().forEach(
                [&](std::uint32_t i, const ObjTuple& next) { text += (i ? "," : "") + chain(next); });
            return Quil::cat("LB ", group.sourceOtas().objId(), "{", text, "}");
        }
        if (out.tableType() == tableTypeLabel && objects.labels()->label(out.labelId(), row)) {
            return Quil::cat("Label ", row.sourceOtas().objId(), "{", chain(row.labelObj().next()), "}");
        }
        if (out.tableType() == tableTypeDest && objects.dests()->dest(out.destId(), end)) {
            return Quil::cat("Dest ", end.sourceOtas().objId(), ":", end.dest().vxlan().vtepAddr());
        }
        return "dangling";
    }
    std::string hostChain(std::uint32_t number) {
        policy.settle();
        HostAndSource record;
        return output->host(test::keyOf(number), record) ? chain(record.host().next()) : "none";
    }
    std::size_t numRows() const {
        const auto count = [](const auto& table) {
            return std::distance(table->records().begin(), table->records().end());
        };
        return static_cast<std::size_t>(count(objects.loadBalances()) + count(objects.labels()) +
                                        count(objects.dests()));
    }

    Quil::Ptr<Quil::ManualClock> clock = Quil::makePtr<Quil::ManualClock>();
    Quil::Ptr<HostOutput> output = hostOutputFactory("output");
    Quil::Ptr<PolicySmStatus> status = policySmStatusFactory("status");
    InputTables tables{hostInputFactory("bgp"), {}};
    Counter counter;
    ObjectOutputs objects{status};
    PolicySm policy{clock, output, objects};
};

TEST_F(ObjectsTest, RowsComeAndGoInAnyOrder) {
    const std::function<void()> comings[] = {[&] { hostIs(1, lb(7)); },
                                             [&] {
                                                 lbIs(7, {label(1), dest(2)});
                                             },
                                             [&] { labelIs(1, dest(1)); }, [&] { destIs(1), destIs(2); }};
    const std::function<void()> goings[] = {
        [&] { tables.hosts->hostDel(test::keyOf(1)); }, [&] { tables.objects.loadBalances->lbDel(LoadBalanceId(7)); },
        [&] { tables.objects.labels->labelDel(LabelId(1)); }, [&] { tables.objects.dests->destDelAll(); }};
    std::vector<int> order(4);
    std::iota(order.begin(), order.end(), 0);
    std::uint64_t last = 0;
    do {
        for (const int i : order) {
            comings[i]();
            EXPECT_EQ(hostChain(1).find("dangling"), std::string::npos);
        }
        EXPECT_EQ(hostChain(1), "LB 7{Label 1{Dest 1:10.0.0.1},Dest 2:10.0.0.2}");
        EXPECT_EQ(numRows(), 4u);
        EXPECT_GT(status->maxLbId().value(), last);  // an identifier is never used twice
        last = status->maxLbId().value();
        for (const int i : order) {
            goings[i]();
            EXPECT_EQ(hostChain(1).find("dangling"), std::string::npos);
        }
        EXPECT_EQ(hostChain(1), "none");
        EXPECT_EQ(numRows(), 0u);
    } while (std::next_permutation(order.begin(), order.end()));
    EXPECT_EQ(objects.manager(tableTypeLoadBalance).inputToOutput({lb(7), sourceBgp}), ObjTuple());
}

TEST_F(ObjectsTest, AChangeOfAGroupIsOneWriteWhateverTheHostsBehindIt) {
    for (std::uint32_t n = 0; n < 500; ++n) hostIs(n, lb(7));
    for (std::uint64_t d = 1; d < 4; ++d) destIs(d);
    lbIs(7, {dest(1), dest(2)});
    EXPECT_EQ(hostChain(499), "LB 7{Dest 1:10.0.0.1,Dest 2:10.0.0.2}");
    counter.hosts = counter.groups = 0;
    lbIs(7, {dest(1), dest(3)});
    EXPECT_EQ(hostChain(499), "LB 7{Dest 1:10.0.0.1,Dest 3:10.0.0.3}");
    EXPECT_EQ(std::pair(counter.groups, counter.hosts), std::pair(1, 0));
    tables.objects.dests->destDel(DestId(3));  // a hole, where the hosts' traffic still finds the other member
    EXPECT_EQ(hostChain(499), "LB 7{Dest 1:10.0.0.1,-}");
    EXPECT_EQ(std::pair(counter.groups, counter.hosts), std::pair(2, 0));
    tables.objects.dests->destDel(DestId(1));  // nothing is left
    EXPECT_EQ(hostChain(499), "none");
    EXPECT_EQ(counter.hosts, 500);
    EXPECT_EQ(numRows(), 1u);  // the destination that is in no group any more
}

TEST_F(ObjectsTest, ACircleIsRefusedUntilItIsBroken) {
    destIs(1);
    lbIs(7, {dest(1)});
    labelIs(1, lb(7));
    hostIs(1, label(1));
    EXPECT_EQ(hostChain(1), "Label 1{LB 7{Dest 1:10.0.0.1}}");
    lbIs(7, {label(1), dest(1)});
    EXPECT_EQ(hostChain(1), "none");
    lbIs(8, {lb(8), dest(1)});
    hostIs(2, lb(8));
    EXPECT_EQ(hostChain(2), "none");
    labelIs(1, dest(1));
    EXPECT_EQ(hostChain(1), "Label 1{Dest 1:10.0.0.1}");
    hostIs(2, lb(7));
    EXPECT_EQ(hostChain(2), "LB 7{Label 1{Dest 1:10.0.0.1},Dest 1:10.0.0.1}");
}

TEST_F(ObjectsTest, EachSourceHasObjectsOfItsOwnAndTakesThemAlong) {
    InputTables other{hostInputFactory("mlag"), {}};
    destIs(1);
    hostIs(1, dest(1));
    Host preferred(test::keyOf(1));
    preferred.preferenceIs(200);
    preferred.nextIs(dest(1));
    other.hosts->hostIs(preferred);
    other.objects.dests->destIs(Dest(DestId(1), DestDataVxlan(Lanx::IpGenAddr::fromIp4(0x0a000009u))));
    policy.sourceIs(sourceMlag, other);
    EXPECT_EQ(hostChain(1), "Dest 1:10.0.0.9");
    EXPECT_EQ(numRows(), 2u);
    // While it fills its tables again, what they lack stands where nobody else has it.
    Host alone(test::keyOf(2));
    alone.nextIs(dest(1));
    other.hosts->hostIs(alone);
    EXPECT_EQ(hostChain(2), "Dest 1:10.0.0.9");
    policy.isWholeIs(sourceMlag, false);
    other.hosts->hostDelAll();
    other.objects.dests->destDelAll();
    EXPECT_EQ(hostChain(1), "Dest 1:10.0.0.1");
    EXPECT_EQ(hostChain(2), "Dest 1:10.0.0.9");
    policy.isWholeIs(sourceMlag, true);
    EXPECT_EQ(hostChain(1), "Dest 1:10.0.0.1");
    EXPECT_EQ(numRows(), 1u);
    other.hosts->hostIs(preferred);
    EXPECT_EQ(hostChain(1), "Dest 1:10.0.0.1");  // it waits for its destination
    other.objects.dests->destIs(Dest(DestId(1), DestDataVxlan(Lanx::IpGenAddr::fromIp4(0x0a000008u))));
    EXPECT_EQ(hostChain(1), "Dest 1:10.0.0.8");
    policy.sourceDel(sourceMlag);
    EXPECT_EQ(hostChain(1), "Dest 1:10.0.0.1");
    EXPECT_EQ(numRows(), 1u);
}

// A restart of the agent: every object that is still there keeps its tuple, no host is told of anything, no identifier
// is used again; what has gone goes when all that were here are back.
TEST_F(ObjectsTest, WhatAnEarlierProcessLeftIsTakenOver) {
    for (std::uint64_t d = 1; d < 4; ++d) destIs(d);
    lbIs(7, {dest(1), label(2)});
    labelIs(2, dest(2));
    hostIs(1, lb(7));
    hostIs(2, dest(3));
    hostIs(3, lb(9));
    lbIs(9, {dest(1)});
    EXPECT_EQ(hostChain(3), "LB 9{Dest 1:10.0.0.1}");
    const auto nextOf = [](const auto& table, std::uint32_t n) { return table->host(test::keyOf(n)).host().next(); };

    for (const bool isBack : {true, false}) {
        Quil::Ptr<HostOutput> outputNow = hostOutputFactory("output");
        Identifiers kept{.lb = 0, .label = 0, .dest = 0};
        ObjectOutputs now(policySmStatusFactory("status"), [&](const Identifiers& ids) { kept = ids; });
        for (const auto& row : objects.loadBalances()->records()) now.loadBalances()->recordIs(row);
        for (const auto& row : objects.labels()->records()) now.labels()->recordIs(row);
        for (const auto& row : objects.dests()->records()) now.dests()->recordIs(row);
        // As if the process had died between giving this object a new tuple and removing the old one's row.
        DestAndSource older(DestId(1000)), newer(DestId(1001));
        older.sourceOtasIs({dest(3), sourceBgp});
        newer.sourceOtasIs({dest(3), sourceBgp});
        now.dests()->recordIs(older), now.dests()->recordIs(newer);
        for (const auto& row : output->records()) outputNow->recordIs(row);
        now.takeOver({.lb = 100, .label = 200, .dest = 1002}, *outputNow);
        Counter told;
        told.HostOutput::NotifieeConst::notifierIs(outputNow);
        PolicySm again(clock, outputNow, now);
        again.takeOver(sourceBgp);
        again.settle();
        EXPECT_EQ(told.hosts, 0);
        if (isBack) {
            hostIs(3, lb(8));
            tables.objects.loadBalances->lbDel(LoadBalanceId(9));
            lbIs(8, {dest(1)});
            again.sourceIs(sourceBgp, tables);
            again.settle();
            EXPECT_EQ(nextOf(outputNow, 1), nextOf(output, 1));
            EXPECT_EQ(nextOf(outputNow, 2), dest(1001));
            EXPECT_EQ(nextOf(outputNow, 3), lb(100));  // not one that was reserved before
            EXPECT_EQ(kept.lb, 100u + 1024u);
            EXPECT_EQ(told.hosts, 2);
            EXPECT_FALSE(now.dests()->dest(DestId(1000), older));
        } else {
            again.awaitedIs(0);
            again.settle();
            EXPECT_EQ(told.hosts, 3);
            EXPECT_TRUE(now.dests()->records().begin() == now.dests()->records().end());
        }
        EXPECT_TRUE(again.isSettled());
    }
}

// What cannot be written is tried again, holds up no other source, and leaves nothing behind.
TEST_F(ObjectsTest, AFailureIsMadeUpFor) {
    bool fails = true;
    ObjectOutputs failing(policySmStatusFactory("status"), [&](const Identifiers&) {
        if (fails) throw Quil::SystemException("no space");
    });
    auto mended = hostOutputFactory("mended");
    PolicySm merge(clock, mended, failing);
    InputTables other{hostInputFactory("mlag"), {}};
    merge.sourceIs(sourceBgp, tables);
    merge.sourceIs(sourceMlag, other);
    const auto isThere = [&](std::uint32_t n) {
        HostAndSource row;
        return mended->host(test::keyOf(n), row);
    };
    destIs(1);
    lbIs(7, {dest(1)});
    for (const std::uint32_t n : {1u, 2u, 3u}) hostIs(n, lb(7));
    clock->run();
    other.hosts->hostIs(Host(test::keyOf(9)));
    clock->run();
    EXPECT_TRUE(isThere(9) && !isThere(1));
    tables.hosts->hostDel(test::keyOf(1));
    hostIs(2, dest(1));
    clock->run();
    fails = false;
    for (int i = 0; i < 3; ++i) {
        clock->nowIs(clock->now() + 1);
        clock->run();
    }
    EXPECT_TRUE(isThere(2) && isThere(3) && !isThere(1));
    EXPECT_TRUE(merge.isSettled());
    tables.hosts->hostDelAll();
    tables.objects.loadBalances->lbDelAll();
    tables.objects.dests->destDelAll();
    merge.settle();
    EXPECT_TRUE(failing.loadBalances()->records().begin() == failing.loadBalances()->records().end());
    EXPECT_TRUE(failing.dests()->records().begin() == failing.dests()->records().end());
}

// Against the plain reading of the tables: an object resolves when it does not lead back to itself and leads somewhere.
class Oracle {
 public:
    explicit Oracle(const ObjectTables& tables) : tables_(tables) {}
    std::string chain(const ObjTuple& at) const {
        const auto next = nextOf(at);
        if (!resolves(at)) return "-";
        if (at.tableType() == tableTypeDest) {
            return Quil::cat("Dest ", at.objId(), ":", tables_.dests->dest(at.destId()).vxlan().vtepAddr());
        }
        std::string text;
        for (std::size_t i = 0; i < next->size(); ++i) text += (i ? "," : "") + chain((*next)[i]);
        return Quil::cat(at.tableType() == tableTypeLabel ? "Label " : "LB ", at.objId(), "{", text, "}");
    }
    bool resolves(const ObjTuple& at) const {
        const auto next = nextOf(at);
        if (!next || reaches(at, at, 0)) return false;
        return at.tableType() == tableTypeDest ||
               std::any_of(next->begin(), next->end(), [&](const auto& child) { return resolves(child); });
    }

 private:
    std::optional<std::vector<ObjTuple>> nextOf(const ObjTuple& at) const {
        LoadBalance group;
        Label row;
        Dest end;
        std::vector<ObjTuple> next;
        if (at.tableType() == tableTypeLoadBalance && tables_.loadBalances->lb(at.lbId(), group)) {
            group.next().forEach([&](std::uint32_t, const ObjTuple& child) { next.push_back(child); });
            return next;
        }
        if (at.tableType() == tableTypeLabel && tables_.labels->label(at.labelId(), row)) return {{row.next()}};
        if (at.tableType() == tableTypeDest && tables_.dests->dest(at.destId(), end)) return next;
        return std::nullopt;
    }
    bool reaches(const ObjTuple& from, const ObjTuple& to, int depth) const {
        const auto next = nextOf(from);
        return next && depth < 8 && std::any_of(next->begin(), next->end(), [&](const auto& child) {
                   return child == to || reaches(child, to, depth + 1);
               });
    }
    const ObjectTables& tables_;
};

TEST_F(ObjectsTest, IsWhatThePlainReadingOfTheTablesGives) {
    const unsigned seed = test::seed();
    SCOPED_TRACE(test::seedNote(seed));
    std::mt19937 random(seed);
    const auto pick = [&](unsigned n) { return static_cast<std::uint32_t>(random() % n); };
    const auto anyTuple = [&] {
        const std::uint64_t id = 1 + pick(3);
        switch (pick(4)) {
            case 0:
                return lb(id);
            case 1:
                return label(id);
            case 2:
                return ObjTuple();
            default:
                return dest(id);
        }
    };
    const Oracle oracle(tables.objects);
    for (unsigned round = 0; round < test::scaled(3000); ++round) {
        const std::uint64_t id = 1 + pick(3);
        switch (pick(8)) {
            case 0:
                hostIs(pick(4), anyTuple());
                break;
            case 1:
                tables.hosts->hostDel(test::keyOf(pick(4)));
                break;
            case 2:
                lbIs(id, {anyTuple(), anyTuple(), anyTuple()});
                break;
            case 3:
                tables.objects.loadBalances->lbDel(LoadBalanceId(id));
                break;
            case 4:
                labelIs(id, anyTuple());
                break;
            case 5:
                tables.objects.labels->labelDel(LabelId(id));
                break;
            case 6:
                destIs(id);
                break;
            default:
                tables.objects.dests->destDel(DestId(id));
        }
        if (pick(3) == 0) continue;  // several changes at a time
        std::size_t rows = 0;
        for (std::uint64_t i = 1; i < 4; ++i) {
            for (const ObjTuple& tuple : {lb(i), label(i), dest(i)}) rows += oracle.resolves(tuple);
        }
        for (std::uint32_t n = 0; n < 4; ++n) {
            Host host;
            const bool isThere = tables.hosts->host(test::keyOf(n), host);
            const bool isEligible = isThere && (host.next() == ObjTuple() || oracle.resolves(host.next()));
            ASSERT_EQ(hostChain(n), isEligible ? oracle.chain(host.next()) : "none") << "round " << round;
        }
        ASSERT_EQ(numRows(), rows) << "round " << round;
    }
}

}  // namespace
