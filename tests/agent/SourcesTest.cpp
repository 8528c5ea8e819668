// Sources announce themselves, die, come back and go: what the agent's output is told of it. Producers and agent run on
// one loop here; sockets and shared memory between them are real.
#include <sys/socket.h>

#include "Quil/LocalSocket.h"
#include "agent/Places.h"
#include "agent/SourceFinder.h"
#include "agent/SourceMounts.h"
#include "producer/AnnouncedSource.h"
#include "support/Support.h"

namespace {

using namespace Agent;
using namespace L2Rib;
using Producer::AnnouncedSource;

struct Log : HostOutput::NotifieeConst {
    int changes = 0;
    void onHost(const Bridging::MacVlanPair&) override { ++changes; }
};

// A producer that begins with empty tables whenever it starts, and takes its time to fill them.
struct ColdProducer {
    ColdProducer(Corestore::EntityManager& manager, const char* name, Source source)
        : em(manager), path(Quil::cat(Places::inputs, "/", name)), entry(sourceDirEntryFactory(name)) {
        em.mount(path, hosts, QuilMemtab::MountInfo::writer("host", 1000));
        entry->hostTableMemtabPathIs(hosts->hostControl().name());
        entry->sourceIs(source);
        announcement = std::make_unique<Quil::AttrLogSource>(em.loop(), Mem::pathUnder(em.root(), path),
                                                             Places::announcement, entry);
    }
    ~ColdProducer() { em.unmount(path, "host"); }
    Corestore::EntityManager& em;
    const Quil::String path;
    const Quil::Ptr<SourceDirEntry> entry;
    const Quil::Ptr<HostInput> hosts = hostInputFactory("host");
    std::unique_ptr<Quil::AttrLogSource> announcement;
};

class SourcesTest : public testing::Test {
 protected:
    SourcesTest() { log.notifierIs(output); }

    static Host hostOf(std::uint32_t number, std::uint32_t preference = 0) {
        Host host(test::keyOf(number));
        host.preferenceIs(preference);
        return host;
    }
    // "1:Bgp 2:Mlag" of the output.
    std::string merged() const {
        std::string text;
        for (std::uint32_t n = 0; n < 10; ++n) {
            HostAndSource record;
            if (!output->host(test::keyOf(n), record)) continue;
            text += Quil::cat(text.empty() ? "" : " ", n, ":", stringValue(record.source()).substr(6));
        }
        return text;
    }
    testing::AssertionResult becomes(const std::string& expected) {
        if (test::turnUntil(loop, [&] { return merged() == expected && policy.isSettled(); })) {
            return testing::AssertionSuccess();
        }
        return testing::AssertionFailure() << merged() << "\n" << reports;
    }
    // Nothing more happens for a while.
    int changesInAWhile() {
        const int before = log.changes;
        test::turnUntil(
            loop, [] { return false; }, 0.3);
        return log.changes - before;
    }
    std::unique_ptr<AnnouncedSource> announced(const char* name, Source source) {
        return std::make_unique<AnnouncedSource>(writers, name, source, 1000);
    }

    test::ScratchDir scratch;
    Quil::EventLoop loop;
    Corestore::EntityManager writers{loop, scratch.path(), "producer"}, readers{loop, scratch.path(), "agent"};
    const Quil::Ptr<HostOutput> output = hostOutputFactory("output");
    const Quil::Ptr<FloodSetOutput> floodSets = floodSetOutputFactory("floodSets");
    const Quil::Ptr<AgentSourceDir> directory = agentSourceDirFactory("sources");
    Log log;
    std::string reports;
    ObjectOutputs objects{policySmStatusFactory("status")};
    PolicySm policy{loop.clock(), output, objects};
    FloodMerge floods{loop.clock(), floodSets};
    const std::function<void(const Quil::String&)> report = [this](const Quil::String& text) {
        reports += text + "\n";
    };
    SourceMounts mounts{readers, directory, policy, floods, report};
    std::unique_ptr<SourceFinder> finder = std::make_unique<SourceFinder>(loop, scratch.path(), directory, 0.5, report);
};

TEST_F(SourcesTest, IsMergedWhenInitializedAndDroppedWhenItWithdrawsItself) {
    auto bgp = announced("b", sourceBgp);
    bgp->hostIs(hostOf(1));
    ASSERT_TRUE(test::turnUntil(loop, [&] {
        const auto entry = directory->source("b");
        return entry && entry->source() == sourceBgp && entry->multiTable();
    }));
    EXPECT_EQ(changesInAWhile(), 0);
    EXPECT_FALSE(finder->isSettled());
    bgp->fillEnds();
    ASSERT_TRUE(becomes("1:Bgp"));
    EXPECT_TRUE(finder->isSettled());
    auto mlag = announced("m", sourceMlag);
    mlag->hosts().put(hostOf(1, 200));
    mlag->hosts().put(hostOf(2));
    mlag->fillEnds();
    ASSERT_TRUE(becomes("1:Mlag 2:Mlag"));
    const int before = log.changes;
    mlag->withdraw();
    ASSERT_TRUE(becomes("1:Bgp"));
    EXPECT_EQ(log.changes - before, 2);  // one update, one deletion
    EXPECT_FALSE(directory->source("m"));
}

TEST_F(SourcesTest, OneThatDiesAndComesBackChangesOnlyWhatDiffers) {
    auto bgp = announced("b", sourceBgp);
    for (const std::uint32_t n : {1u, 2u, 3u}) bgp->hostIs(hostOf(n));
    bgp->fillEnds();
    ASSERT_TRUE(becomes("1:Bgp 2:Bgp 3:Bgp"));
    bgp.reset();
    ASSERT_TRUE(test::turnUntil(loop, [&] { return !directory->source("b")->initialized(); }));
    bgp = announced("b", sourceBgp);
    for (const std::uint32_t n : {1u, 2u}) bgp->hostIs(hostOf(n));
    EXPECT_EQ(changesInAWhile(), 0);
    bgp->fillEnds();
    ASSERT_TRUE(becomes("1:Bgp 2:Bgp"));
    EXPECT_EQ(changesInAWhile(), 0);
    EXPECT_EQ(log.changes, 4);
    bgp.reset();
    ASSERT_TRUE(becomes(""));  // after the hold time
    EXPECT_FALSE(directory->source("b"));
    bgp = announced("b", sourceBgp);  // and what it has left is there again
    bgp->hostIs(hostOf(1));
    bgp->fillEnds();
    ASSERT_TRUE(becomes("1:Bgp"));
}

TEST_F(SourcesTest, ANewIncarnationIsNotTrustedBeforeItIsInitialized) {
    auto bgp = std::make_unique<ColdProducer>(writers, "b", sourceBgp);
    for (const std::uint32_t n : {1u, 2u, 3u}) bgp->hosts->hostIs(hostOf(n));
    bgp->entry->initializedIs(true);
    ASSERT_TRUE(becomes("1:Bgp 2:Bgp 3:Bgp"));
    EXPECT_EQ(log.changes, 3);
    bgp.reset();
    bgp = std::make_unique<ColdProducer>(writers, "b", sourceBgp);
    EXPECT_EQ(changesInAWhile(), 0);
    bgp->hosts->hostIs(hostOf(1));
    bgp->hosts->hostIs(hostOf(2, 7));
    ASSERT_TRUE(test::turnUntil(loop, [&] { return log.changes == 4; })) << reports;
    bgp->entry->initializedIs(true);
    ASSERT_TRUE(becomes("1:Bgp 2:Bgp"));
    EXPECT_EQ(changesInAWhile(), 0);
    EXPECT_EQ(log.changes, 5);
}

TEST_F(SourcesTest, OneEntryAtATimeSpeaksForASource) {
    auto first = announced("a", sourceBgp), second = announced("b", sourceBgp);
    first->hostIs(hostOf(1));
    second->hostIs(hostOf(2));
    first->fillEnds();
    ASSERT_TRUE(becomes("1:Bgp"));
    second->fillEnds();
    ASSERT_TRUE(test::turnUntil(
        loop, [&] { return reports.find("b is not merged: sourceBgp is announced by a") != std::string::npos; }));
    auto empty = announced("aa", sourceBgp);  // not filled: it is passed over
    ASSERT_TRUE(test::turnUntil(loop, [&] { return directory->source("aa") != nullptr; }));
    first->withdraw();
    EXPECT_TRUE(becomes("2:Bgp"));
}

// A source that is slow to answer, or an agent that holds nothing, gives nobody up who is there.
TEST_F(SourcesTest, WhoAnswersIsNotGivenUp) {
    finder.reset();
    auto listener = Quil::LocalSocket::listen(scratch.path(), "slow", SOCK_STREAM);  // answers, and says nothing
    const std::string slow = scratch.path() + "/" + Places::inputs + "/slow";
    Mem::Files::makeDirectories(slow);
    Mem::Files::rename(scratch.path() + "/slow", slow + "/" + Places::announcement);
    finder = std::make_unique<SourceFinder>(loop, scratch.path(), directory, 0, report);
    ASSERT_TRUE(test::turnUntil(loop, [&] { return directory->source("slow") != nullptr; }));
    EXPECT_FALSE(finder->isSettled());
    auto bgp = announced("b", sourceBgp);
    bgp->hostIs(hostOf(1));
    bgp->fillEnds();
    ASSERT_TRUE(becomes("1:Bgp"));
    test::turnUntil(
        loop, [] { return false; }, 1.5);
    EXPECT_TRUE(directory->source("slow")) << reports;
    bgp.reset();  // without a hold time its end is the end
    ASSERT_TRUE(becomes(""));
    listener = {};
    ASSERT_TRUE(test::turnUntil(loop, [&] { return !directory->source("slow"); })) << reports;
    // A dead one's socket does not bring its entry back.
    Mem::Files::makeDirectories(scratch.path() + "/" + Places::inputs + "/other");
    test::turnUntil(
        loop, [] { return false; }, 0.3);
    EXPECT_TRUE(directory->source().empty());
}

TEST_F(SourcesTest, AnEntryThatCannotBeMountedIsSaid) {
    const std::tuple<const char*, Source, const char*, const char*> cases[] = {
        {"none", sourceNone, "l2rib/input/x/host/host", "sourceNone is not one source"},
        {"all", sourceAll, "l2rib/input/x/host/host", "sourceAll is not one source"},
        {"bare", sourceMlag, "", "'' is no table of a host collection"},
        {"lb", sourceMlag, "l2rib/input/x/lb/lb", "'l2rib/input/x/lb/lb' is no table of a host collection"},
        {"up", sourceMlag, "l2rib/../../etc/host", "'l2rib/../../etc/host' is no table of a host collection"}};
    for (const auto& [name, source, path, text] : cases) {
        const auto entry = directory->sourceIs(name);
        entry->sourceIs(source);
        entry->hostTableMemtabPathIs(path);
        entry->initializedIs(true);
        EXPECT_NE(reports.find(Quil::cat("source ", name, " is not merged: ", text, "\n")), std::string::npos)
            << reports;
    }
}

// The agent starts while its sources are there, dead or away.
TEST_F(SourcesTest, AnAgentThatStartsAgainFindsTheSources) {
    auto bgp = announced("b", sourceBgp);
    bgp->hostIs(hostOf(1));
    bgp->fillEnds();
    auto dead = announced("d", sourceMlag);
    dead->hostIs(hostOf(2));
    dead->fillEnds();
    dead.reset();
    ASSERT_TRUE(becomes("1:Bgp"));
    finder.reset();
    directory->sourceDelAll();
    ASSERT_TRUE(becomes(""));
    finder = std::make_unique<SourceFinder>(loop, scratch.path(), directory, 0.5, report);
    ASSERT_TRUE(becomes("1:Bgp"));
    ASSERT_TRUE(test::turnUntil(loop, [&] { return !directory->source("d"); }));
    EXPECT_EQ(merged(), "1:Bgp");
}

}  // namespace
