// A tree of entities in one process is like one in another, through changes, disconnections and malformed records. Both
// ends run on one loop here; the socket between them is real.
#include <sys/socket.h>

#include "L2Rib/L2Rib.h"
#include "Quil/AttrLogSink.h"
#include "Quil/AttrLogSource.h"
#include "Quil/LocalSocket.h"
#include "support/Support.h"

namespace {

using namespace L2Rib;
using Bridging::VlanId;

const Lanx::EthAddr mac = Lanx::EthAddr::fromNumber(0x020000000001);
Dest destOf(std::uint64_t key) { return {DestId(key), DestDataIntf(Lanx::IntfId(1))}; }

// The whole tree as text.
std::string textOf(const AgentSourceDir& dir) {
    std::string out;
    for (const auto& [name, entry] : dir.source()) {
        out += name + "{";
        for (const auto& attribute : entry->fwkType().attributes) out += attribute.get(*entry) + ",";
        for (const auto& [vlan, sets] : entry->vlanFloodSet()) {
            for (const auto& [address, set] : sets->floodSet()) {
                std::set<std::string> dests;
                for (const auto& [dest, flag] : set->destSet()) dests.insert(Quil::cat(dest, flag));
                out += Quil::cat(vlan, address, set->floodSetType(), ":");
                for (const auto& dest : dests) out += dest;
            }
        }
        out += "}";
    }
    return out;
}

class ReplicationTest : public testing::Test {
 protected:
    void fill(AgentSourceDir& dir) {
        auto entry = dir.sourceIs("bgp");
        entry->hostTableMemtabPathIs("l2rib/input/bgp/host/host");
        entry->hostTableLenIs(16384);
        entry->sourceIs(sourceBgp);
        entry->vlanFloodSetIs(VlanId(10))->floodSetIs(mac)->floodSetTypeIs(floodSetTypeAll);
        for (std::uint64_t d = 1; d < 4; ++d)
            entry->vlanFloodSet(VlanId(10))->floodSet(mac)->destSetIs(destOf(d), true);
        entry->initializedIs(true);
        dir.sourceIs("mlag")->sourceIs(sourceMlag);
    }
    void serve() { source = std::make_unique<Quil::AttrLogSource>(loop, scratch.path(), "log", from); }
    bool becomesAlike() {
        return test::turnUntil(loop, [&] { return sink.isSynchronised() && textOf(*from) == textOf(*to); });
    }

    test::ScratchDir scratch;
    Quil::EventLoop loop;
    Quil::Ptr<AgentSourceDir> from = agentSourceDirFactory("sources"), to = agentSourceDirFactory("sources");
    std::unique_ptr<Quil::AttrLogSource> source;
    Quil::AttrLogSink sink{loop, scratch.path(), "log", to};
};

TEST_F(ReplicationTest, FollowsChangesAtEveryDepth) {
    fill(*from);
    serve();
    ASSERT_TRUE(becomesAlike()) << textOf(*to);
    auto entry = from->source("bgp");
    entry->vlanFloodSet(VlanId(10))->floodSet(mac)->destSetDel(destOf(2));
    entry->vlanFloodSet(VlanId(10))->floodSet(mac)->destSetIs(destOf(3), false);
    entry->vlanFloodSetIs(VlanId(20))->floodSetIs(mac)->destSetIs(destOf(9), true);
    ASSERT_TRUE(becomesAlike());
    from->sourceDel("mlag");
    entry->vlanFloodSet(VlanId(10))->floodSet(mac)->destSetDelAll();
    entry->vlanFloodSetDel(VlanId(20));
    entry->vlanFloodSetIs(VlanId(20));  // another child of the same key, without what the old one held
    ASSERT_TRUE(becomesAlike());
    EXPECT_TRUE(to->source("bgp")->vlanFloodSet(VlanId(20))->floodSet().empty());
}

struct Watcher : SourceDirEntry::NotifieeConst, AgentSourceDir::NotifieeConst {
    std::string log;
    void onHostTableMemtabPath() override { log += "path "; }
    void onHostTableLen() override { log += "len "; }
    void onSource() override { log += "source "; }
    void onInitialized() override { log += "initialized "; }
    void onSource(const Quil::Name& name) override {
        log += name + " ";
        auto entry = AgentSourceDir::NotifieeConst::notifier()->source(name);
        if (entry && name == "bgp") SourceDirEntry::NotifieeConst::notifierIs(entry);
    }
};

TEST_F(ReplicationTest, TellsItsWatchersOfWhatDiffersAfterAReconnection) {
    Watcher watcher;
    watcher.AgentSourceDir::NotifieeConst::notifierIs(to);
    fill(*from);
    serve();
    ASSERT_TRUE(becomesAlike());
    EXPECT_NE(watcher.log.find("path len source initialized "), std::string::npos) << watcher.log;
    watcher.log.clear();
    source.reset();
    ASSERT_TRUE(test::turnUntil(loop, [&] { return !sink.isConnected(); }));
    const std::string kept = textOf(*to);
    EXPECT_NE(kept.find("mlag"), std::string::npos);
    from->sourceDel("mlag");
    from->source("bgp")->hostTableLenIs(7);
    from->source("bgp")->vlanFloodSet(VlanId(10))->floodSet(mac)->destSetDel(destOf(1));
    serve();
    ASSERT_TRUE(becomesAlike());
    EXPECT_EQ(watcher.log, "len mlag ");
}

// Whatever a watcher does when the sink removes what has gone: the rest is removed, and nobody is left out of step.
TEST_F(ReplicationTest, AWatcherMayThrowOrDestroyTheSinkWhileItCatchesUp) {
    struct Rough : AgentSourceDir::NotifieeConst {
        std::function<void()> act;
        void onSource(const Quil::Name&) override {
            if (act) std::exchange(act, nullptr)();
        }
    } rough;
    fill(*to);
    to->sourceIs("x"), to->sourceIs("y");
    rough.notifierIs(to);
    rough.act = [] { throw std::runtime_error("a watcher's"); };
    serve();
    for (bool isOver = false; !isOver;) {
        try {
            ASSERT_TRUE(becomesAlike());
            isOver = true;
        } catch (const std::runtime_error&) {
        }
    }
    auto other = agentSourceDirFactory("sources");
    auto brief = std::make_unique<Quil::AttrLogSink>(loop, scratch.path(), "log", other);
    other->sourceIs("x"), other->sourceIs("y");
    rough.notifierIs(other);
    rough.act = [&] { brief.reset(); };
    ASSERT_TRUE(test::turnUntil(loop, [&] { return !brief; }));
    EXPECT_EQ(other->source().size(), 1u);
}

// One that breaks off each connection is not asked for all the time.
TEST_F(ReplicationTest, ASourceThatSaysNothingIsAskedLessAndLess) {
    auto listener = Quil::LocalSocket::listen(scratch.path(), "log", SOCK_STREAM);
    int connections = 0;
    test::turnUntil(
        loop,
        [&] {
            if (Quil::FileDescriptor(accept(listener.get(), nullptr, nullptr))) ++connections;
            return false;
        },
        1.2);
    EXPECT_GE(connections, 2);
    EXPECT_LE(connections, 5);
}

TEST_F(ReplicationTest, StartsAtTheScalarThatIsAskedFor) {
    auto status = policySmStatusFactory("status"), copy = policySmStatusFactory("status");
    status->maxLabelIdIs(LabelId(1)), status->maxLbIdIs(LoadBalanceId(2)), status->maxDestIdIs(DestId(3));
    Quil::AttrLogSource statusSource(loop, scratch.path(), "status", status);
    Quil::AttrLogSink statusSink(loop, scratch.path(), "status", copy, {}, 2);
    ASSERT_TRUE(test::turnUntil(loop, [&] { return statusSink.isSynchronised(); }));
    EXPECT_EQ(copy->maxLabelId(), LabelId());
    EXPECT_EQ(copy->maxLbId(), LoadBalanceId(2));
    EXPECT_EQ(copy->maxDestId(), DestId(3));
    status->maxLabelIdIs(LabelId(9));  // what changes later is sent like any other
    EXPECT_TRUE(test::turnUntil(loop, [&] { return copy->maxLabelId() == LabelId(9); }));
}

// A sink may ask for a scalar to be set, where the source takes that; every sink is told.
TEST_F(ReplicationTest, ASinkAsksForAChange) {
    auto config = configFactory("config"), shown = configFactory("config"), wanted = configFactory("config");
    wanted->agentEnabledIs(false);
    auto configSource = std::make_unique<Quil::AttrLogSource>(loop, scratch.path(), "config", config);
    Quil::AttrLogSink asking(loop, scratch.path(), "config", shown);
    const auto ready = [&] { return asking.isSynchronised(); };
    ASSERT_TRUE(test::turnUntil(loop, ready));
    EXPECT_TRUE(asking.ask(*wanted, 1));
    ASSERT_TRUE(test::turnUntil(loop, [&] { return !asking.isConnected(); }));  // it only shows
    EXPECT_TRUE(config->agentEnabled());
    configSource.reset();
    configSource =
        std::make_unique<Quil::AttrLogSource>(loop, scratch.path(), "config", config, Quil::AttrLogSource::writable);
    ASSERT_TRUE(test::turnUntil(loop, ready));
    EXPECT_TRUE(asking.ask(*wanted, 1));
    ASSERT_TRUE(test::turnUntil(loop, [&] { return !shown->agentEnabled(); }));
    EXPECT_FALSE(config->agentEnabled());
}

// A sink that does not read costs the source no memory for every change: it gets the last value of each attribute.
TEST_F(ReplicationTest, ASlowSinkGetsTheLatestValues) {
    serve();
    auto slow = Quil::LocalSocket::connect(scratch.path(), "log", SOCK_STREAM);
    const unsigned char hello[] = {'Q', 'A', 'T', 'L', 0, 1, 0, 1};
    ASSERT_EQ(send(slow.get(), hello, sizeof hello, 0), 8);
    ASSERT_TRUE(test::turnUntil(loop, [&] { return source->numSinks() == 2; }));
    auto entry = from->sourceIs("bgp");
    const std::string path(1000, 'x');
    for (int i = 0; i < 3000; ++i) {
        entry->hostTableMemtabPathIs(path + std::to_string(i));
        loop.runOnce(0);
    }
    ASSERT_TRUE(becomesAlike());
    std::string bytes;
    ASSERT_TRUE(test::turnUntil(loop, [&] {
        char buffer[65536];
        const ssize_t size = recv(slow.get(), buffer, sizeof buffer, MSG_DONTWAIT);
        if (size > 0) bytes.append(buffer, static_cast<std::size_t>(size));
        return bytes.size() > 1000 && bytes.compare(bytes.size() - 4, 4, "2999") == 0;
    }));
    EXPECT_LT(bytes.size(), 2000u * 1000u);
}

TEST_F(ReplicationTest, AMalformedRecordClosesTheConnectionAndChangesNothing) {
    fill(*to);
    const std::string before = textOf(*to);
    Quil::AttrLogRecord::Bytes good;
    const auto record = [](std::uint16_t attribute, Quil::AttrLogRecord::Operation operation,
                           Quil::AttrLogRecord::Bytes key, Quil::AttrLogRecord::Bytes value,
                           Quil::AttrLogRecord::Path path = {}) {
        Quil::AttrLogRecord::Bytes out;
        Quil::AttrLogRecord{std::move(path), attribute, operation, std::move(key), std::move(value)}.appendTo(out);
        return out;
    };
    using Record = Quil::AttrLogRecord;
    const Record::Bytes bgp{0, 0, 0, 3, 'b', 'g', 'p'};
    const Record::Path inBgp{{1, bgp}};
    std::vector<Record::Bytes> cases = {
        {0x7f, 0, 0, 0},                                                     // too long
        {0, 0, 0, 2, 0, 0},                                                  // too short for a record
        record(9, Record::set, {}, {1}),                                     // no such attribute
        record(1, Record::set, {}, {1}),                                     // a collection is no scalar
        record(1, Record::keySet, {0, 0, 0, 9, 'x'}, {}),                    // a key that ends too early
        record(1, Record::keyDelete, {0, 0, 0, 1, 'x', 'y'}, {}),            // and one with too much behind it
        record(5, Record::set, {}, {1, 2}, inBgp),                           // half a length
        record(5, Record::set, {}, {1, 2, 3, 4, 5}, inBgp),                  // too much of one
        record(10, Record::set, {}, {1}, inBgp),                             // what is derived is not sent
        record(12, Record::keySet, {0xff, 0xff}, {}, inBgp),                 // no VLAN
        record(5, Record::set, {}, {0, 0, 0, 1}, {{1, {0, 0, 0, 1, 'z'}}}),  // no such child
        record(1, static_cast<Record::Operation>(77), {}, {})};
    auto listener = Quil::LocalSocket::listen(scratch.path(), "log", SOCK_STREAM);
    for (std::size_t i = 0; i < cases.size(); ++i) {
        Quil::FileDescriptor peer;
        ASSERT_TRUE(test::turnUntil(loop, [&] {
            if (!peer) peer = Quil::FileDescriptor(accept(listener.get(), nullptr, nullptr));
            return peer && sink.isConnected();
        }));
        ASSERT_EQ(send(peer.get(), cases[i].data(), cases[i].size(), 0), static_cast<ssize_t>(cases[i].size()));
        ASSERT_TRUE(test::turnUntil(loop, [&] { return !sink.isConnected(); })) << "case " << i;
        EXPECT_EQ(textOf(*to), before) << "case " << i;
        if (i + 1 < cases.size() && test::scale() < 1) i += 2;  // a second each
    }
    listener = {};
    fill(*from);
    from->sourceDel("mlag");
    serve();
    EXPECT_TRUE(becomesAlike());
}

}  // namespace
