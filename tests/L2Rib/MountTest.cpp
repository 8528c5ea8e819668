// Tables between processes: look up, walk and follow what another process writes, through its crashes and returns.
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "Corestore/EntityManager.h"
#include "L2Rib/L2Rib.h"
#include "support/Support.h"

namespace {

using test::keyOf;
using test::recordOf;

class MountTest : public testing::Test {
 protected:
    Quil::Ptr<L2Rib::HostOutput> mounted(Corestore::EntityManager& em, QuilMemtab::QuilMemtabType mode) {
        auto table = L2Rib::hostOutputFactory("host");
        em.mount("l2rib/output", table, L2Rib::TableInfo().hostOutputInfo(mode));
        return table;
    }
    std::string tableDirectory() const { return scratch.path() + "/l2rib/output/host/host"; }

    test::ScratchDir scratch;
    Quil::EventLoop loop;
    Corestore::EntityManager writerEm{loop, scratch.path()};
    Corestore::EntityManager readerEm{loop, scratch.path(), "a reader"};
};

struct Recorder : L2Rib::HostOutput::NotifieeConst {
    std::vector<Bridging::MacVlanPair> keys;
    int collections = 0;
    void onHost(const Bridging::MacVlanPair& key) override { keys.push_back(key); }
    void onHost() override { ++collections; }
};

TEST_F(MountTest, ReaderSeesWhatIsThereAndIsToldOfEveryChange) {
    auto writer = mounted(writerEm, QuilMemtab::writer);
    writer->hostIs(recordOf(1, 1));
    auto reader = mounted(readerEm, QuilMemtab::reader);
    Recorder recorder;
    recorder.notifierIs(reader);
    ASSERT_TRUE(test::turnUntil(loop, [&] { return recorder.keys.size() == 1; }));
    EXPECT_EQ(recorder.collections, 1);
    EXPECT_EQ(recorder.keys[0], keyOf(1));
    EXPECT_EQ(test::generationOf(reader->host(keyOf(1))), 1u);
    EXPECT_TRUE(reader->hostControl().mounted());

    // A burst is one wake-up and one delivery a key, with the last state.
    for (std::uint32_t g = 2; g < 50; ++g) writer->hostIs(recordOf(1, g));
    writer->hostIs(recordOf(2, 1));
    writer->hostDel(keyOf(2));
    ASSERT_TRUE(
        test::turnUntil(loop, [&] { return reader->hostControl().sequence() == writer->hostControl().sequence(); }));
    EXPECT_LE(recorder.keys.size(), 3u);
    EXPECT_EQ(test::generationOf(reader->host(keyOf(1))), 49u);
    L2Rib::HostAndSource gone;
    EXPECT_FALSE(reader->host(keyOf(2), gone));
    EXPECT_EQ(gone, L2Rib::HostAndSource());
}

TEST_F(MountTest, WritingThroughAReaderIsRefused) {
    auto writer = mounted(writerEm, QuilMemtab::writer);
    auto reader = mounted(readerEm, QuilMemtab::reader);
    EXPECT_THROW(reader->hostIs(recordOf(1, 1)), Quil::AssertionException);
    EXPECT_THROW(reader->hostDel(keyOf(1)), Quil::AssertionException);
}

TEST_F(MountTest, ASecondWriterFailsBeforeItChangesAnything) {
    auto writer = mounted(writerEm, QuilMemtab::writer);
    writer->hostIs(recordOf(1, 1));
    EXPECT_THROW(mounted(readerEm, QuilMemtab::writer), Verro::InvalidInitializeException);
    Corestore::EntityManager third(loop, scratch.path());
    auto reader = mounted(third, QuilMemtab::reader);
    ASSERT_TRUE(test::turnUntil(loop, [&] { return reader->hostControl().mounted(); }));
    EXPECT_EQ(test::generationOf(reader->host(keyOf(1))), 1u);
}

// Same sizes, other type: told apart by name.
TEST_F(MountTest, ATableOfAnotherTypeIsNotMounted) {
    auto labels = L2Rib::labelTableFactory("label");
    writerEm.mount("l2rib/input/bgp", labels, QuilMemtab::MountInfo::writer("label", 64));
    std::filesystem::create_directories(scratch.path() + "/l2rib/input/bgp/dest");
    std::filesystem::rename(scratch.path() + "/l2rib/input/bgp/label/label",
                            scratch.path() + "/l2rib/input/bgp/dest/dest");
    auto dests = L2Rib::destTableFactory("dest");
    readerEm.mount("l2rib/input/bgp", dests, QuilMemtab::MountInfo::reader("dest"));
    EXPECT_FALSE(test::turnUntil(
        loop, [&] { return dests->destControl().isReadable(); }, 0.6));
    EXPECT_EQ(sizeof(L2Rib::Label), sizeof(L2Rib::Dest));
}

TEST_F(MountTest, ReaderServesADeadWritersTableAndFollowsItsReturn) {
    std::optional<test::Child> writer(std::in_place,
                                      std::vector<std::string>{"l2rib-test-peer", "fill", scratch.path(), "100"});
    ASSERT_EQ(writer->readLine(), "ready");
    auto reader = mounted(readerEm, QuilMemtab::reader);
    Recorder recorder;
    recorder.notifierIs(reader);
    ASSERT_TRUE(test::turnUntil(loop, [&] { return recorder.keys.size() == 100; }));

    writer->kill(SIGKILL);
    writer->wait();
    ASSERT_TRUE(
        test::turnUntil(loop, [&] { return reader->hostControl().readerState() == Memtab::ReaderSm::State::stale; }));
    EXPECT_EQ(test::generationOf(reader->host(keyOf(99))), 7u);

    // Who comes while there is no writer reads the files it left.
    Corestore::EntityManager lateEm(loop, scratch.path());
    auto late = mounted(lateEm, QuilMemtab::reader);
    EXPECT_EQ(std::distance(late->hosts().begin(), late->hosts().end()), 100);

    // The next incarnation has fewer hosts, and nothing else is told, nor was when the writer went.
    for (int i = 0; i < 20; ++i) loop.runOnce(0.01);
    EXPECT_EQ(recorder.keys.size(), 100u);
    recorder.keys.clear();
    writer.emplace(std::vector<std::string>{"l2rib-test-peer", "fill", scratch.path(), "30"});
    ASSERT_EQ(writer->readLine(), "ready");
    ASSERT_TRUE(test::turnUntil(loop, [&] { return reader->hostControl().mounted() && recorder.keys.size() >= 70; }));
    EXPECT_EQ(std::distance(reader->hosts().begin(), reader->hosts().end()), 30);
    std::sort(recorder.keys.begin(), recorder.keys.end());
    std::vector<Bridging::MacVlanPair> gone;
    for (std::uint32_t n = 30; n < 100; ++n) gone.push_back(keyOf(n));
    EXPECT_EQ(recorder.keys, gone);
    EXPECT_EQ(recorder.collections, 2);
    ASSERT_TRUE(test::turnUntil(loop, [&] { return late->hostControl().mounted(); }));
}

// A shadow changes only in turns of the loop; it follows moves of a shrink, the reuse of slots, and a new incarnation.
TEST_F(MountTest, AShadowIsOnePictureBetweenTwoTurns) {
    for (const bool keepsValues : {true, false}) {
        Corestore::EntityManager em(loop, scratch.path());
        auto writer = mounted(em, QuilMemtab::writer);
        auto shadow = L2Rib::hostOutputFactory("host");
        Corestore::EntityManager shadowEm(loop, scratch.path(), "shadow");
        shadowEm.mount("l2rib/output", shadow, QuilMemtab::MountInfo::shadow("host", keepsValues));
        const auto settle = [&] {
            ASSERT_TRUE(test::turnUntil(
                loop, [&] { return shadow->hostControl().sequence() == writer->hostControl().sequence(); }));
            for (int i = 0; i < 50; ++i) loop.runOnce(0);
        };
        const auto hosts = [](const auto& table) {
            std::map<Bridging::MacVlanPair, std::uint32_t> all;
            for (const auto& record : table->hosts()) all[record.key()] = test::generationOf(record);
            return all;
        };
        for (std::uint32_t n = 0; n < 20000; ++n) writer->hostIs(recordOf(n, 1));
        settle();
        EXPECT_EQ(hosts(shadow).size(), 20000u);
        EXPECT_EQ(hosts(shadow), hosts(writer));
        for (std::uint32_t n = 100; n < 20000; ++n) writer->hostDel(keyOf(n));
        writer->hostIs(recordOf(5, 2));
        writer->hostIs(recordOf(30000, 1));
        if (keepsValues) {
            EXPECT_EQ(hosts(shadow).size(), 20000u);  // nothing has changed for it yet
            EXPECT_EQ(test::generationOf(shadow->host(keyOf(5))), 1u);
        }
        settle();
        EXPECT_EQ(hosts(shadow), hosts(writer));
        EXPECT_EQ(shadow->host(keyOf(200)), L2Rib::HostAndSource());
        em.unmount("l2rib/output", "host");
        auto next = mounted(writerEm, QuilMemtab::writer);
        next->hostIs(recordOf(1, 9));
        ASSERT_TRUE(test::turnUntil(loop, [&] { return hosts(shadow).size() == 1; }));
        EXPECT_EQ(test::generationOf(shadow->host(keyOf(1))), 9u);
        writerEm.unmount("l2rib/output", "host");
    }
}

// A key that comes back while its removal is being told, and goes once more into another's slot, is told of again.
TEST_F(MountTest, AShadowForgetsWhatCameAndWentBetweenTwoLooks) {
    auto writer = mounted(writerEm, QuilMemtab::writer);
    auto shadow = L2Rib::hostOutputFactory("host");
    readerEm.mount("l2rib/output", shadow, QuilMemtab::MountInfo::shadow("host", true));
    const auto settle = [&] {
        ASSERT_TRUE(test::turnUntil(
            loop, [&] { return shadow->hostControl().sequence() == writer->hostControl().sequence(); }));
        for (int i = 0; i < 20; ++i) loop.runOnce(0);
    };
    writer->hostIs(recordOf(1, 1));
    writer->hostIs(recordOf(2, 1));
    settle();
    struct Returner : L2Rib::HostOutput::NotifieeConst {
        L2Rib::HostOutput* table = nullptr;
        void onHost(const Bridging::MacVlanPair& key) override {
            if (table && key == keyOf(1)) std::exchange(table, nullptr)->hostIs(recordOf(2, 2));
        }
    } returner;
    returner.notifierIs(shadow);
    settle();
    returner.table = writer.get();
    writer->hostIs(recordOf(1, 2));
    writer->hostDel(keyOf(2));
    settle();
    EXPECT_EQ(returner.table, nullptr);
    EXPECT_EQ(test::generationOf(shadow->host(keyOf(2))), 2u);
    writer->hostDel(keyOf(2));
    writer->hostIs(recordOf(3, 1));
    settle();
    EXPECT_EQ(shadow->host(keyOf(2)), L2Rib::HostAndSource());
    EXPECT_EQ(std::distance(shadow->hosts().begin(), shadow->hosts().end()), 2);
}

TEST_F(MountTest, WhatACallbackThrowsDoesNotStopItsReader) {
    auto writer = mounted(writerEm, QuilMemtab::writer);
    auto reader = mounted(readerEm, QuilMemtab::reader);
    struct Thrower : Recorder {
        void onHost(const Bridging::MacVlanPair& key) override {
            Recorder::onHost(key);
            if (key == keyOf(2)) throw std::runtime_error("from a callback");
        }
    } thrower;
    thrower.notifierIs(reader);
    for (std::uint32_t n = 1; n < 5; ++n) writer->hostIs(recordOf(n, 1));
    EXPECT_THROW(test::turnUntil(
                     loop, [] { return false; }, 5),
                 std::runtime_error);
    ASSERT_TRUE(test::turnUntil(loop, [&] { return thrower.keys.size() == 4; }));
    writer->hostIs(recordOf(9, 1));
    ASSERT_TRUE(test::turnUntil(loop, [&] { return thrower.keys.size() == 5; }));
}

// A reader that meets damage keeps what it has mapped, and so its connection: nothing is taken from under it.
TEST_F(MountTest, AReaderOfADamagedTableStaysConnected) {
    auto writer = mounted(writerEm, QuilMemtab::writer);
    for (std::uint32_t n = 0; n < 10; ++n) writer->hostIs(recordOf(n, 1));
    auto reader = mounted(readerEm, QuilMemtab::reader);
    ASSERT_TRUE(test::turnUntil(loop, [&] { return reader->hostControl().sequence() == 10; }));
    for (int i = 0; i < 20; ++i) loop.runOnce(0.01);
    writer->hostIs(recordOf(10, 1));
    // The queue says that it has more records than it has room for.
    std::fstream(tableDirectory() + "/conquer.1", std::ios::in | std::ios::out).seekp(66).put(1);
    const auto readers = [&] { return writer->hostControl().localWriter()->conquer().numReaders(); };
    ASSERT_TRUE(test::turnUntil(loop, [&] { return reader->hostControl().corruptions() > 0; }));
    for (int i = 0; i < 250; ++i) {
        loop.runOnce(0.01);
        ASSERT_EQ(readers(), 1u);
    }
    EXPECT_EQ(test::generationOf(reader->host(keyOf(3))), 1u);
}

// A table that is kept over a restart: no change is lost, and none is invented.
TEST_F(MountTest, AWriterGoesOnWithAWholeTable) {
    auto info = QuilMemtab::MountInfo::writer("host", 1000);
    info.keepOverRestart = true;
    const auto start = [&](Corestore::EntityManager& em) {
        auto table = L2Rib::hostOutputFactory("host");
        em.mount("l2rib/output", table, info);
        return table;
    };
    auto writer = start(writerEm);
    for (std::uint32_t n = 0; n < 100; ++n) writer->hostIs(recordOf(n, 1));
    auto reader = mounted(readerEm, QuilMemtab::reader);
    Recorder recorder;
    recorder.notifierIs(reader);
    ASSERT_TRUE(test::turnUntil(loop, [&] { return recorder.keys.size() == 100; }));
    const auto fenix = SharedMem::FenixFile::read(tableDirectory());
    writerEm.unmount("l2rib/output", "host");
    Corestore::EntityManager nextEm(loop, scratch.path());
    auto next = start(nextEm);
    EXPECT_EQ(SharedMem::FenixFile::read(tableDirectory()), fenix);
    EXPECT_EQ(next->host(keyOf(7)), recordOf(7, 1));
    next->hostIs(recordOf(7, 2));
    next->hostDel(keyOf(8));
    EXPECT_EQ(next->hostControl().sequence(), 102u);
    ASSERT_TRUE(test::turnUntil(loop, [&] { return reader->hostControl().sequence() == 102; }));
    EXPECT_EQ(test::generationOf(reader->host(keyOf(7))), 2u);
    EXPECT_EQ(std::distance(reader->hosts().begin(), reader->hosts().end()), 99);
    ASSERT_TRUE(test::turnUntil(loop, [&] { return recorder.keys.size() >= 102; }));
    EXPECT_EQ(std::set(recorder.keys.begin() + 100, recorder.keys.end()), (std::set{keyOf(7), keyOf(8)}));
    EXPECT_EQ(recorder.collections, 1);
    // One that came and went while nobody looked.
    nextEm.unmount("l2rib/output", "host");
    ASSERT_TRUE(
        test::turnUntil(loop, [&] { return reader->hostControl().readerState() == Memtab::ReaderSm::State::stale; }));
    for (int i = 0; i < 20; ++i) loop.runOnce(0.01);
    recorder.keys.clear();
    Corestore::EntityManager briefEm(loop, scratch.path());
    start(briefEm)->hostIs(recordOf(9, 2));
    briefEm.unmount("l2rib/output", "host");
    ASSERT_TRUE(test::turnUntil(loop, [&] { return !recorder.keys.empty(); }));
    EXPECT_EQ(recorder.keys, std::vector{keyOf(9)});

    // What is not whole is begun anew, under a new number.
    std::fstream(tableDirectory() + "/slots", std::ios::in | std::ios::out).seekp(168).put(1);
    Corestore::EntityManager lastEm(loop, scratch.path());
    auto last = start(lastEm);
    EXPECT_NE(SharedMem::FenixFile::read(tableDirectory()), fenix);
    EXPECT_EQ(last->hosts().begin(), last->hosts().end());
    ASSERT_TRUE(test::turnUntil(loop, [&] { return reader->hosts().begin() == reader->hosts().end(); }));
}

// Whatever happens while a reader sleeps, compactions, a shrink, or its connection's end at the cap, it ends with the
// final state of every entry.
TEST_F(MountTest, AStoppedReaderEndsWithTheFinalState) {
    for (const std::uint32_t cap : {1u << 20, 4096u}) {
        const bool isKept = cap > 40000;  // more than there will be to tell
        SCOPED_TRACE(cap);
        Memtab::Options options;
        options.maxSize = 1000;
        options.shrinkSlots = options.shrinkBuckets = options.kickReaders = true;
        options.maxNotifications = cap;
        auto table = L2Rib::hostOutputFactory("host");
        Corestore::EntityManager em(loop, scratch.path());
        em.dirIs("l2rib/output")->entityIs(table);
        table->hostControl().mount(Memtab::Mode::writer, options, {loop, scratch.path(), ""});
        for (std::uint32_t n = 0; n < 5000; ++n) table->hostIs(recordOf(n, 1));
        test::Child follower({"l2rib-test-peer", "follow", scratch.path()});
        follower.readUntil("ready");
        auto& writer = *table->hostControl().localWriter();
        ASSERT_TRUE(test::turnUntil(loop, [&] { return writer.clientQuiesced("l2rib-test-peer"); }));
        follower.kill(SIGSTOP);
        for (std::uint32_t g = 2; g < 30; ++g) {
            for (std::uint32_t n = 0; n < 1000; ++n) table->hostIs(recordOf(n, g));
            loop.runOnce(0);
        }
        for (std::uint32_t n = 100; n < 5000; ++n) table->hostDel(keyOf(n));
        EXPECT_GT(writer.conquer().counters().compactions, 1u);
        EXPECT_GE(writer.writerCounters().shrinks, 1u);
        EXPECT_EQ(writer.conquer().counters().droppedReaders, isKept ? 0u : 1u);
        follower.kill(SIGCONT);
        table->hostIs(recordOf(0, 0xffffffffu));
        std::set<std::string> expected, told;
        for (const auto& record : table->hosts()) {
            expected.insert(Quil::cat(record.key(), " ", test::generationOf(record)));
        }
        ASSERT_TRUE(test::turnUntil(loop, [&] { return writer.clientQuiesced("l2rib-test-peer"); }));
        EXPECT_EQ(follower.wait(), 0) << follower.rest();
        std::istringstream lines(follower.rest());
        for (std::string line; std::getline(lines, line);) told.insert(line);
        EXPECT_EQ(told, expected);
        em.unmount("l2rib/output", "host");
    }
}

TEST_F(MountTest, AFullFileSystemRefusesOneWriteAndHarmsNothing) {
    const std::pair<const char*, const char*> cases[] = {{"64", "no room, nothing left: posix_fallocate("},
                                                         {"900", "full after 4096, then 3072: SlotWriter::resize() "},
                                                         {"1500", "full after 8192, then 6144: SlotWriter::resize() "}};
    for (const auto& [kib, expected] : cases) {
        const auto [status, output] = test::run({"l2rib-test-peer", "full", scratch.path(), kib});
        if (output.find("not allowed") != std::string::npos) GTEST_SKIP() << output;
        EXPECT_EQ(status, 0) << output;
        EXPECT_EQ(output.rfind(expected, 0), 0u) << output;
        EXPECT_NE(output.find("No space left on device"), std::string::npos) << output;
    }
}

// The judgement of the engine: every kind of reader beside a writer at full speed, growing from its first size.
TEST_F(MountTest, ReadersAtFullSpeedSeeNoTornNoMissingNoInventedRecord) {
    const std::string seconds = Quil::cat(3 * test::scale()), root = scratch.path();
    test::Child writer({"l2rib-test-peer", "write", root, seconds, "500", "30000"});
    ASSERT_EQ(writer.readLine(), "ready");
    test::Child lookup({"l2rib-test-peer", "lookup", root, seconds, "500", "30000"});
    test::Child walk({"l2rib-test-peer", "walk", root, seconds, "500"});
    test::Child follow({"l2rib-test-peer", "follow", root});
    EXPECT_EQ(lookup.wait(), 0) << lookup.rest();
    EXPECT_EQ(walk.wait(), 0) << walk.rest();
    EXPECT_EQ(follow.readLine(), "ready");
    EXPECT_EQ(follow.wait(), 0) << follow.rest();
    const std::string wrote = writer.readLine();
    if (test::scale() >= 1) {
        EXPECT_EQ(wrote.find("shrinks 0"), std::string::npos) << wrote;
    }
    EXPECT_EQ(writer.wait(), 0) << writer.rest();
    std::cout << "  " << wrote << "\n  " << lookup.rest() << "  " << walk.rest();
    const auto sorted = [](const std::string& text) {
        std::set<std::string> lines;
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);) lines.insert(line);
        return lines;
    };
    std::vector<std::string> differing;
    const auto written = sorted(writer.rest()), followed = sorted(follow.rest());
    std::set_symmetric_difference(written.begin(), written.end(), followed.begin(), followed.end(),
                                  std::back_inserter(differing));
    EXPECT_TRUE(differing.empty()) << "the follower ended with another table: " << differing.size() << " lines, first "
                                   << differing[0];
}

}  // namespace
