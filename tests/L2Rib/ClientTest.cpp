// The consumer's side: the filtered iterator, the review timer and the client state machine, on a clock that is moved
// by hand. A test is a script of instants.
#include "Corestore/EntityManager.h"
#include "L2Rib/L2Rib.h"
#include "Quil/Exception.h"
#include "Quil/Trace.h"
#include "support/Support.h"

namespace {

using namespace L2Rib;
using Bridging::MacVlanPair;
using Bridging::VlanId;

MacVlanPair keyIn(std::uint32_t number, std::uint16_t vlan) {
    return {Lanx::EthAddr::fromNumber(0x020000000000ULL + number), VlanId(vlan)};
}
HostAndSource hostOf(const MacVlanPair& key, Source source) {
    HostAndSource record(key);
    record.hostIs(Host(key));
    record.sourceIs(source);
    return record;
}

// The lines that handles of this name trace.
struct Lines {
    std::vector<std::string> lines;
    Quil::Trace& handle;
    Lines(const char* name, int level) : handle(Quil::Trace::handler(name)) {
        Quil::Trace::sinkIs([this, name](const Quil::String& from, int, const Quil::String& text) {
            if (from == name) lines.push_back(text);
        });
        handle.levelIs(level);
    }
    ~Lines() {
        handle.levelIs(0);
        Quil::Trace::sinkIs({});
    }
    bool has(const std::string& line) const { return std::find(lines.begin(), lines.end(), line) != lines.end(); }
};

TEST(OutputIterator, VisitsWhatPassesBothFilters) {
    auto table = hostOutputFactory("host");
    for (std::uint32_t n = 0; n < 40; ++n) {
        table->hostIs(hostOf(keyIn(n, n % 2 ? 10 : 20), n % 4 < 2 ? sourceBgp : sourceLocalDynamic));
    }
    const struct {
        std::uint32_t sources;
        VlanId vlan;
        std::size_t count;
    } cases[] = {{0, {}, 40},
                 {0, VlanId(10), 20},
                 {0, VlanId(30), 0},
                 {sourceBgp, {}, 20},
                 {sourceBgp | sourceLocalDynamic, {}, 40},
                 {sourceBgp, VlanId(10), 10},
                 {sourceMlag, {}, 0}};
    for (const auto& c : cases) {
        std::set<MacVlanPair> seen;
        for (const HostAndSource& host : hostsOf(table, c.sources, c.vlan)) {
            EXPECT_TRUE(c.sources == 0 || (host.source() & c.sources));
            EXPECT_TRUE(c.vlan == VlanId() || host.key().vlanId() == c.vlan);
            seen.insert(host.key());
        }
        EXPECT_EQ(seen.size(), c.count);
    }
    L2RibOutputIteratorConst at(table, sourceBgp);
    const MacVlanPair first = at.key();
    at.updateToNextHostIterator();  // inclusive: a key that passes is kept
    EXPECT_EQ(at.key(), first);
    L2RibOutputIteratorConst plain(table, 0);
    plain.updateToNextHostIterator();  // nothing passes no filter
    EXPECT_TRUE(plain.done() && !plain.valid());
    // From a key that is gone on: its successor.
    ++at;
    const MacVlanPair second = at.key();
    table->hostDel(first);
    EXPECT_EQ(L2RibOutputIteratorConst(table, sourceBgp, {}, first).key(), second);
    EXPECT_EQ(L2RibOutputIteratorConst(table, sourceBgp, {}, second).key(), second);
}

TEST(OutputIterator, Traces) {
    auto table = hostOutputFactory("host");
    Lines trace("L2Rib::L2RibOutputIteratorConst", 8);
    EXPECT_TRUE(L2RibOutputIteratorConst(table, sourceBgp).done());
    const MacVlanPair a = keyIn(1, 10);
    table->hostIs(hostOf(a, sourceBgp));
    for (L2RibOutputIteratorConst at(table, sourceBgp, VlanId(10)); at; ++at) continue;
    EXPECT_EQ(trace.lines, (std::vector<std::string>{"  Done", "Host Key= " + a.str(), "   Vlan filter matched",
                                                     "   Source filter matched", "  Done"}));
}

struct CountingNotifiee : Quil::Clock::NotifieeConst {
    using NotifieeConst::NotifieeConst;
    int calls = 0;
    void onTime() override { ++calls; }
};

TEST(ReviewTimer, LetsABurstThroughAndThenPaces) {
    auto clock = Quil::makePtr<Quil::ManualClock>();
    auto notifiee = std::make_unique<CountingNotifiee>(clock);
    auto& calls = notifiee->calls;
    auto timer = Quil::makePtr<Keel::ReviewTimer>(std::move(notifiee), 4.0, 4, 0.1, 5.0);
    std::vector<double> reviews;
    // Asked for all the time: a review follows as soon as it may.
    for (int i = 0; i < 6; ++i) {
        timer->doUpdateNextReview();
        const double due = timer->wakeupTime();
        timer->doUpdateNextReview();  // nothing while one is due
        EXPECT_EQ(timer->wakeupTime(), due);
        EXPECT_EQ(calls, i);
        clock->nowIs(due);
        clock->run();
        EXPECT_EQ(calls, i + 1);
        timer->timeOfLastReviewIs(due);
        reviews.push_back(due);
    }
    const double expected[] = {0.1, 0.2, 0.3, 0.4, 4.0, 4.1};
    for (std::size_t i = 0; i < reviews.size(); ++i) EXPECT_NEAR(reviews[i], expected[i], 1e-9) << i;
    // Credits come back up to the maximum.
    clock->nowIs(100);
    timer->doUpdateNextReview();
    EXPECT_EQ(timer->credits(), 3u);
    EXPECT_NEAR(timer->wakeupTime(), 100.1, 1e-9);
}

// Every handler call as a line; each call takes some time.
class Consumer : public L2RibClientSm {
 public:
    Consumer(Quil::String name, Quil::Ptr<L2Rib::Plugin::Context> context, Quil::Ptr<Quil::ManualClock> manual)
        : L2RibClientSm(std::move(name), std::move(context)), manual_(std::move(manual)) {}
    void doAddHost(const MacVlanPair& key) override { told("add ", key); }
    void doUpdateHost(const MacVlanPair& key) override { told("update ", key); }
    void doRemoveHost(const MacVlanPair& key) override { told("remove ", key); }
    std::vector<std::string> take() { return std::exchange(calls_, {}); }
    double cost = 0;                                 // seconds of each call
    std::function<void(const MacVlanPair&)> inside;  // called within the next one

 private:
    void told(const char* what, const MacVlanPair& key) {
        if (auto f = std::exchange(inside, {})) f(key);
        calls_.push_back(Quil::cat(what, key.ethAddr().number() & 0xffff));
        manual_->nowIs(manual_->now() + cost);
    }
    Quil::Ptr<Quil::ManualClock> manual_;
    std::vector<std::string> calls_;
};

class ClientTest : public testing::Test {
 protected:
    ClientTest() {
        context->l2RibOutputIs(table);
        context->clockIs(clock);
        client = Quil::makePtr<Consumer>("consumer", context, clock);
    }
    void is(std::uint32_t n, Source source = sourceBgp) { table->hostIs(hostOf(keyIn(n, 10), source)); }
    void del(std::uint32_t n) { table->hostDel(keyIn(n, 10)); }
    // Lets the next review come.
    void review() {
        clock->nowIs(std::max(clock->now(), clock->nextWakeup() == Quil::never ? 0 : clock->nextWakeup()));
        clock->run();
    }
    using Calls = std::vector<std::string>;

    Quil::Ptr<Quil::ManualClock> clock = Quil::makePtr<Quil::ManualClock>();
    Quil::Ptr<HostOutput> table = hostOutputFactory("host");
    Quil::Ptr<L2Rib::Plugin::Context> context = L2Rib::Plugin::contextFactory();
    Quil::Ptr<Consumer> client;
};

TEST_F(ClientTest, DeliversEachHostOnceWithItsLastState) {
    for (const std::uint32_t n : {3, 1, 2}) is(n);
    is(9, sourceLocalDynamic);
    review();
    EXPECT_EQ(client->take(), Calls());  // not before the filter is set
    client->sourceFilterIs(sourceBgp);
    EXPECT_EQ(client->take(), Calls());
    review();
    EXPECT_EQ(client->take(), (Calls{"add 1", "add 2", "add 3"}));
    is(2), is(2), is(4), is(5), del(5), del(1), is(9, sourceLocalDynamic);
    review();
    // 5 came and went before its review: added all the same.
    EXPECT_EQ(client->take(), (Calls{"remove 1", "update 2", "add 4", "add 5"}));
    EXPECT_EQ(client->source().at(keyIn(5, 10)).source(), sourceNone);
    EXPECT_FALSE(client->source().contains(keyIn(1, 10)));
    EXPECT_EQ(client->hostsProcessed(), 7u);
    is(2, sourceLocalDynamic);  // to an unwanted source: left alone
    review();
    EXPECT_EQ(client->take(), Calls());
    client->doReplayHosts();
    review();
    EXPECT_EQ(client->take(), (Calls{"update 3", "update 4"}));
    EXPECT_EQ(client->yieldBeforeFinishingCount(), 0u);
}

TEST_F(ClientTest, AChangeOfTheFilterRemovesAndAdds) {
    Lines trace("L2Rib::L2RibClientSm", 8);
    is(1), is(2, sourceVcs), is(3, sourceMlag);
    client->sourceFilterIs(sourceBgp);
    review();
    EXPECT_EQ(client->take(), (Calls{"add 1"}));
    client->sourceFilterIs(sourceBgp | sourceVcs);
    EXPECT_TRUE(trace.has("  change 2"));
    review();
    EXPECT_EQ(client->take(), (Calls{"update 1", "add 2"}));
    client->sourceFilterIs(sourceVcs | sourceMlag);
    EXPECT_TRUE(trace.has("  change 21"));
    EXPECT_TRUE(trace.has("   Host " + keyIn(1, 10).str() + " removed"));
    review();
    EXPECT_EQ(client->take(), (Calls{"remove 1", "update 2", "add 3"}));
    EXPECT_TRUE(trace.has("   Deleting host " + keyIn(1, 10).str()));
    EXPECT_TRUE(trace.has("   Updating host " + keyIn(2, 10).str()));
    EXPECT_TRUE(trace.has("   Adding host" + keyIn(3, 10).str()));
    EXPECT_TRUE(trace.has("Review Finished"));
    is(4, sourceVcs);
    EXPECT_TRUE(trace.has("Host " + keyIn(4, 10).str() + "added to L2RibOutput. Change count is 1"));
    is(5, sourceBgp);  // not marked, and the trace does not mark it either
    EXPECT_TRUE(trace.has("Host " + keyIn(5, 10).str() + "removed from L2RibOutput. Change count is 1"));
    EXPECT_EQ(client->changedHost().size(), 1u);
    client->sourceFilterIs(0);
    is(6, sourceVcs);
    review();
    EXPECT_EQ(client->take(), Calls());
}

// Three calls fit into a quantum: the pass yields and goes on at its bookmark; keys below wait for the turn after.
TEST_F(ClientTest, APassIsBoundedAndGoesOnWhereItStopped) {
    client->sourceFilterIs(sourceBgp);
    review();
    for (std::uint32_t n = 10; n < 18; ++n) is(n);
    client->cost = 0.004;
    review();
    EXPECT_EQ(client->take(), (Calls{"add 10", "add 11", "add 12"}));
    EXPECT_EQ(client->yieldBeforeFinishingCount(), 1u);
    is(5);
    EXPECT_EQ(clock->nextWakeup(), clock->now());
    clock->run();
    EXPECT_EQ(client->take(), (Calls{"add 13", "add 14", "add 15"}));
    clock->run();
    EXPECT_EQ(client->take(), (Calls{"add 16", "add 17"}));
    EXPECT_EQ(client->yieldBeforeFinishingCount(), 3u);  // 5 is left
    clock->run();
    EXPECT_EQ(client->take(), (Calls{"add 5"}));
    EXPECT_EQ(clock->nextWakeup(), Quil::never);
    // Synchronising is bounded, too: nothing fits into no time, and it says so.
    Lines trace("L2Rib::L2RibClientSm", 8);
    client->backlogQuantumIs(0);
    client->doReplayHosts();
    review();
    EXPECT_TRUE(trace.has("Some hosts are left non reviewed"));
    EXPECT_FALSE(client->reviewedOnce());
    client->backlogQuantumIs(1);
    client->cost = 0;
    clock->run();
    EXPECT_EQ(client->take().size(), 9u);
}

TEST_F(ClientTest, WhatAHandlerThrowsLeavesItsHostToBeReviewed) {
    is(1), is(2);
    client->sourceFilterIs(sourceBgp);
    client->inside = [&](const MacVlanPair&) {
        is(3);
        throw std::runtime_error("busy");
    };
    EXPECT_THROW(review(), std::runtime_error);
    EXPECT_EQ(client->hostsProcessed(), 0u);
    review();  // asked for again, with the timer's patience
    EXPECT_EQ(client->take(), (Calls{"add 1", "add 2", "add 3"}));
    auto base = l2RibClientSmFactory("base", context);
    base->sourceFilterIs(sourceBgp);
    try {
        review();
        FAIL();
    } catch (const Quil::NoImplementationException& error) {
        EXPECT_STREQ(error.what(), "doAddHost must be implemented in the derived class");
    }
}

TEST_F(ClientTest, RegistersItsNameAndFollowsTheContext) {
    Lines trace("L2Rib::L2RibClientSm", 3);
    EXPECT_EQ(context->pluginCount(), 1u);
    auto debug = Debug::debugL2RibClientSmFactory("consumer", context);
    EXPECT_EQ(trace.lines, (std::vector<std::string>{" Duplicate name consumer among plugins"}));
    EXPECT_EQ(context->pluginCount(), 2u);
    debug->sourceFilterIs(sourceBgp);
    is(1);
    review();
    is(1);
    review();
    EXPECT_TRUE(debug->myHostColl().contains(keyIn(1, 10)) && debug->myHostUpdateColl().contains(keyIn(1, 10)));
    auto other = hostOutputFactory("other");
    context->l2RibOutputIs(other);
    EXPECT_EQ(debug->l2RibOutput(), other);
    auto laterClock = Quil::makePtr<Quil::ManualClock>();
    context->clockIs(laterClock);
    other->hostIs(hostOf(keyIn(7, 10), sourceBgp));
    laterClock->nowIs(10);
    laterClock->run();
    EXPECT_TRUE(debug->myHostColl().contains(keyIn(7, 10)));
    debug = nullptr;
    EXPECT_EQ(context->pluginCount(), 1u);
    EXPECT_TRUE(context->pluginName().empty());
    const HostKeyAndSource value(keyIn(1, 10), sourceVcs);
    EXPECT_EQ(value.str(), "Value('L2Rib::HostKeyAndSource', ** {'key': 02:00:00:00:00:01/10, 'source': sourceVcs})");
    EXPECT_EQ(HostKeyAndSource(value.str()), value);
}

}  // namespace
