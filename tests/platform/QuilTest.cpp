// The framework: notifiee lists that change under their own rounds, clocks, traces, the type registry.
#include <functional>
#include <memory>
#include <thread>

#include "L2Rib/ObjTupleManager.h"
#include "L2Rib/Types.h"
#include "Quil/Counter.h"
#include "Quil/Trace.h"
#include "support/Support.h"

namespace {

struct Listener {
    std::function<void()> call;
};

TEST(NotifieeList, ToleratesAttachDetachAndNestingFromInsideARound) {
    Quil::NotifieeList<Listener> list;
    std::string log;
    Listener a, b, c;
    const auto round = [&] { list.forEach([](Listener& l) { l.call(); }); };
    a.call = [&] {
        log += 'a';
        if (log.size() == 1) {
            list.detach(&a);  // itself
            list.detach(&b);  // one still to come
            list.attach(&c);  // from the next round on
            round();          // nested: c is there already
        }
    };
    b.call = [&] { log += 'b'; };
    c.call = [&] { log += 'c'; };
    list.attach(&a);
    list.attach(&b);
    round();
    EXPECT_EQ(log, "ac");
    round();
    EXPECT_EQ(log, "acc");
    list.detach(&c);
    EXPECT_TRUE(list.empty());
}

struct Alarm : Quil::Clock::NotifieeConst {
    using NotifieeConst::NotifieeConst;
    std::function<void()> ring;
    void onTime() override { ring(); }
};

TEST(Clock, WakesInOrderOfTimeAndNeverTwiceInOneRun) {
    auto clock = Quil::makePtr<Quil::ManualClock>();
    std::string log;
    Alarm early(clock), late(clock), cancelled(clock);
    early.ring = [&] {
        log += 'e';
        early.wakeupTimeIs(0);       // due at once: in the next run
        cancelled.wakeupTimeIs(99);  // was due in this run
    };
    late.ring = [&] { log += 'l'; };
    cancelled.ring = [&] { log += 'x'; };
    late.wakeupTimeIs(2);
    early.wakeupTimeIs(1);
    cancelled.wakeupTimeIs(1.5);
    clock->run();
    EXPECT_EQ(log, "");
    clock->nowIs(2);
    clock->run();
    EXPECT_EQ(log, "el");
    clock->run();
    EXPECT_EQ(log, "ele");
    EXPECT_EQ(clock->nextWakeup(), 0);
}

TEST(Trace, ADisabledLevelBuildsNoString) {
    Quil::Trace& trace = Quil::Trace::handler("test");
    std::string lines;
    Quil::Trace::sinkIs([&](const Quil::String& name, int level, const Quil::String& text) {
        lines += Quil::cat(name, level, text, ";");
    });
    int built = 0;
    for (const int level : {5, 9}) {
        trace.levelIs(level);
        trace.log(9, [&] { return Quil::cat("built ", ++built); });
        trace.log(5, [&] { return Quil::cat("built ", ++built); });
    }
    EXPECT_EQ(lines, "test5built 1;test9built 2;test5built 3;");
    trace.levelIs(0);
}

TEST(Ptr, ThreadSafeCountingLosesNoReference) {
    if (!test::hasThreads) GTEST_SKIP() << "no threads under the emulator";
    Quil::countingIsThreadSafe(true);
    const Quil::Ptr<Quil::ManualClock> shared = Quil::makePtr<Quil::ManualClock>();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 20000; ++i) const Quil::Ptr<const Quil::Clock> copy = shared;
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(shared->references(), 1u);
    Quil::countingIsThreadSafe(false);
}

TEST(TypeRegistry, CreatesReadsAndSetsByName) {
    L2Rib::registerTypes();
    auto& registry = Quil::TypeRegistry::instance();
    const auto manager = registry.create("L2Rib::ObjTupleManager", {"tableTypeDest", "1", "100"});
    const Quil::Type& type = manager->fwkType();
    EXPECT_EQ(type.attribute("current").get(*manager), "1");
    type.attribute("current").set(*manager, "10");
    EXPECT_EQ(static_cast<L2Rib::ObjTupleManager&>(*manager).current(), 10u);
    EXPECT_FALSE(type.attribute("first").set);
    const auto table = registry.create("L2Rib::LabelTable", {"mine"});
    EXPECT_EQ(table->fwkType().attribute("label").get(*table), "{}");
    EXPECT_EQ(registry.find("L2Rib::ObjTuple")->reprint("Value('L2Rib::ObjTuple', ** {'objId': 7, 'tableType': 3})"),
              "Value('L2Rib::ObjTuple', ** {'objId': 7, 'tableType': tableTypeDest})");
    EXPECT_THROW(registry.create("L2Rib::Nothing", {}), Quil::RangeException);
    EXPECT_THROW(registry.create("L2Rib::LabelTable", {}), Quil::RangeException);
    EXPECT_THROW(type.attribute("nothing"), Quil::RangeException);
}

TEST(Counter, TheRegistryKnowsLivingCounters) {
    {
        Quil::Counter a("testCounter"), b("testCounter");
        ++a, ++a, ++b;
        EXPECT_EQ(Quil::CounterRegistry::total("testCounter"), 3u);
    }
    EXPECT_EQ(Quil::CounterRegistry::total("testCounter"), 0u);
}

}  // namespace
