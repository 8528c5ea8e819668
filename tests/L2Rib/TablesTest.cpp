// The table entities: notifications, counters, place in the tree, local writers.
#include "Corestore/EntityManager.h"
#include "L2Rib/L2Rib.h"
#include "Quil/Trace.h"
#include "support/Support.h"

namespace {

using test::keyOf;
using test::recordOf;

struct Recorder : L2Rib::HostOutput::NotifieeConst {
    std::function<void(const Bridging::MacVlanPair&)> call;
    int calls = 0;
    void onHost(const Bridging::MacVlanPair& key) override {
        ++calls;
        if (call) call(key);
    }
};

std::uint64_t counted(const char* name) { return Quil::CounterRegistry::total(name); }

TEST(Tables, WriteRemoveAndCountBeforeTheyAreMounted) {
    auto table = L2Rib::hostOutputFactory("host");
    Recorder recorder;
    recorder.notifierIs(table);
    const auto is = counted("hostIs"), del = counted("hostDel"), notified = counted("hostNotify");
    for (std::uint32_t n = 0; n < 100; ++n) table->hostIs(recordOf(n, 1));
    table->hostIs(recordOf(5, 1));  // an equal record notifies, too
    EXPECT_EQ(recorder.calls, 101);
    EXPECT_EQ(table->hostDel(keyOf(5)), recordOf(5, 1));
    EXPECT_EQ(table->hostDel(keyOf(5)), L2Rib::HostAndSource());
    EXPECT_EQ(recorder.calls, 102);
    EXPECT_EQ(counted("hostIs") - is, 101u);
    EXPECT_EQ(counted("hostDel") - del, 2u);
    table->hostDelAll();  // through iterators: each counts twice and notifies once
    EXPECT_EQ(counted("hostDel") - del, 2u + 2 * 99);
    EXPECT_EQ(counted("hostNotify") - notified, 102u + 99);
    EXPECT_EQ(table->hosts().begin(), table->hosts().end());
    EXPECT_EQ(table->hostDel(L2Rib::HostOutput::IteratorConst()), L2Rib::HostAndSource());
    EXPECT_EQ(counted("hostDel") - del, 2u + 2 * 99 + 1);
}

TEST(Tables, AnEntryIsFilledInPlaceAndCommitted) {
    auto table = L2Rib::hostOutputFactory("host");
    Recorder recorder;
    recorder.notifierIs(table);
    const auto is = counted("hostIs");
    auto* entry = table->hostControl().directWrite(keyOf(5));
    entry->value() = recordOf(5, 1);
    EXPECT_EQ(table->host(keyOf(5)), L2Rib::HostAndSource());
    table->hostCommit(&entry->value());
    EXPECT_EQ(table->host(keyOf(5)), recordOf(5, 1));
    EXPECT_EQ(recorder.calls, 1);
    EXPECT_EQ(counted("hostIs") - is, 1u);
    table->hostControl().directWrite(keyOf(6));
    EXPECT_THROW(table->hostIs(recordOf(6, 1)), Quil::AssertionException);
}

TEST(Tables, ANotifieeMayDropTheLastReference) {
    for (const bool deletes : {false, true}) {
        auto table = L2Rib::hostOutputFactory("host");
        for (std::uint32_t n = 0; n < 5; ++n) table->hostIs(recordOf(n, 1));
        Recorder first, second;
        first.notifierIs(table);
        second.notifierIs(table);
        auto* raw = table.get();
        table = nullptr;
        first.call = [&](const auto&) { first.notifierIs(nullptr), second.notifierIs(nullptr); };
        deletes ? raw->hostDelAll() : raw->hostIs(recordOf(9, 1));
        EXPECT_EQ(first.calls + second.calls, 1);
    }
}

TEST(Tables, ANotifieeMayDeleteAnotherEntryMeanwhile) {
    auto table = L2Rib::hostOutputFactory("host");
    Recorder recorder;
    recorder.notifierIs(table);
    for (std::uint32_t n = 0; n < 3; ++n) table->hostIs(recordOf(n, 7));
    recorder.call = [&](const Bridging::MacVlanPair& key) {
        if (key == keyOf(0)) table->hostDel(keyOf(1));
    };
    EXPECT_EQ(table->hostDel(keyOf(0)), recordOf(0, 7));
    EXPECT_EQ(std::distance(table->hosts().begin(), table->hosts().end()), 1);
}

TEST(Tables, AllEightHoldTheirRecords) {
    auto label = L2Rib::labelOutputFactory("label");
    label->labelIs(L2Rib::LabelAndSource(L2Rib::LabelId(3)));
    EXPECT_EQ(label->label(L2Rib::LabelId(3)).key(), L2Rib::LabelId(3));
    auto lb = L2Rib::loadBalanceTableFactory("lb");
    L2Rib::LoadBalance group(L2Rib::LoadBalanceId(1));
    group.nextIs(L2Rib::EcmpIndex(2), L2Rib::ObjTuple(L2Rib::ObjId(9), L2Rib::tableTypeLabel));
    lb->lbIs(group);
    EXPECT_EQ(lb->lb(L2Rib::LoadBalanceId(1)), group);
    auto dest = L2Rib::destTableFactory("dest");
    L2Rib::Dest cpu;
    cpu.destTypeIs(L2Rib::destTypeCpu);
    dest->destIs(cpu);
    EXPECT_EQ(dest->destDel(L2Rib::DestId(0)).destType(), L2Rib::destTypeCpu);
    auto lbOutput = L2Rib::loadBalanceOutputFactory("lb");
    lbOutput->lbIs(L2Rib::LoadBalanceAndSource(L2Rib::LoadBalanceId(8)));
    EXPECT_EQ(std::distance(lbOutput->lbs().begin(), lbOutput->lbs().end()), 1);
    auto destOutput = L2Rib::destOutputFactory("dest");
    destOutput->destIs(L2Rib::DestAndSource(L2Rib::DestId(4)));
    EXPECT_EQ(destOutput->fwkType().name, "L2Rib::DestOutput");
}

TEST(QuilMemtabMap, FollowsItsEntityThroughTheTree) {
    std::string lines;
    Quil::Trace::sinkIs([&](const Quil::String&, int, const Quil::String& text) { lines += text + "\n"; });
    Quil::Trace::handler("MemtabTemp-host").levelIs(5);
    auto table = L2Rib::hostInputFactory("mine");
    table->hostIs(L2Rib::Host(keyOf(1)));
    auto parent = Quil::makePtr<Corestore::Dir>("parent");
    parent->entityIs(table);
    EXPECT_EQ(table->hostControl().name(), "parent/mine/host");
    EXPECT_EQ(table->hosts().begin(), table->hosts().end()) << "the first parent brings a fresh table";
    table->hostIs(L2Rib::Host(keyOf(2)));
    parent->entityDel("mine");
    EXPECT_THROW(table->hostIs(L2Rib::Host(keyOf(3))), Quil::AssertionException);
    Quil::Trace::handler("MemtabTemp-host").levelIs(0);
    for (const char* line : {"QuilMemtabMap::entity() creating local MemtabWriter mine/host\n",
                             "QuilMemtabMap::handleParent(): old: mine/host new: parent/mine/host\n",
                             "QuilMemtabMap::handleParent(): parent/mine/host is now an orphan\n"}) {
        EXPECT_NE(lines.find(line), std::string::npos) << line;
    }
    try {
        parent->entityIs(table);
        FAIL();
    } catch (const Verro::InvalidInitializeException& error) {
        EXPECT_STREQ(error.what(), "Entity mine already initialized");
    }
}

TEST(TableInfo, GivesTheFourOutputTablesTheSameSettings) {
    const L2Rib::TableInfo info;
    auto host = info.hostOutputInfo(QuilMemtab::shadow);
    EXPECT_EQ(host.mode, QuilMemtab::shadow);
    const bool options[] = {host.fixedCapacity, host.waitForReaders, host.shrinkSlots,     host.shrinkBuckets,
                            host.pruneConquer,  host.kickReaders,    host.keepOverRestart, host.shadowValues};
    const bool expected[] = {false, false, true, true, true, true, false, false};
    EXPECT_TRUE(std::equal(std::begin(options), std::end(options), std::begin(expected)));
    EXPECT_EQ(host.maxEntries, (std::map<Quil::String, std::uint32_t>{{"host", 16384}}));
    auto lb = info.loadBalanceOutputInfo(QuilMemtab::shadow);
    EXPECT_NE(host, lb);
    lb.maxEntries = host.maxEntries;
    EXPECT_EQ(host, lb);
    EXPECT_EQ(L2Rib::TableInfo(), info);
}

}  // namespace
