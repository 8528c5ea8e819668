// The other process: a writer or a reader of a host output table, at full speed for a while.
//
//   l2rib-test-peer write  ROOT SECONDS STABLE VOLATILE   prints "ready", works, prints "wrote N" and what is left;
//                                                         the table fills up and empties again and again
//   l2rib-test-peer fill   ROOT COUNT                     writes records 0 to COUNT-1, generation 7; prints "ready";
//   stays l2rib-test-peer full   DIR KIB                        fills a table on a file system of so many KiB until
//   there is
//                                                         no space, and works on; prints the error
//   l2rib-test-peer lookup ROOT SECONDS STABLE VOLATILE   random lookups; fails on torn or missing records
//   l2rib-test-peer walk   ROOT SECONDS STABLE            whole iterations; fails on disorder or missing records
//   l2rib-test-peer follow ROOT                           follows until the record with key 0 has generation
//                                                         0xffffffff; then prints one line per key: "key generation"
//   l2rib-test-peer dump   ROOT                           one line per record
#include <sched.h>
#include <sys/mount.h>

#include <filesystem>
#include <iostream>
#include <map>
#include <random>
#include <set>

#include "Corestore/EntityManager.h"
#include "L2Rib/TableInfo.h"
#include "Mem/KickSocket.h"
#include "Memtab/Summary.h"
#include "support/Support.h"

namespace {

struct Table {
    Quil::EventLoop loop;
    Corestore::EntityManager em;
    Quil::Ptr<L2Rib::HostOutput> hosts = L2Rib::hostOutputFactory("host");
    // A follower watches from before the mount: it is told of every host there is.
    Table(const std::string& root, QuilMemtab::QuilMemtabType mode,
          L2Rib::HostOutput::NotifieeConst* follower = nullptr)
        : em(loop, root) {
        if (follower) follower->notifierIs(hosts);
        em.mount("l2rib/output", hosts, L2Rib::TableInfo().hostOutputInfo(mode));
        if (!test::turnUntil(loop, [&] { return hosts->hostControl().isReadable(); })) fail("cannot mount the table");
    }
    double now() { return loop.clock()->now(); }
    [[noreturn]] static void fail(const std::string& what) {
        std::cout << "FAILED: " << what << std::endl;
        std::_Exit(1);
    }
};

// Gives the processor away between any two stores, now and then: what readers may see in between, they will.
struct Yields : Mem::Observer {
    std::mt19937 random{3};
    Yields() { Mem::observer = this; }
    ~Yields() override { Mem::observer = nullptr; }
    void onStore(const void*, std::size_t) override {
        if (random() % 256 == 0) sched_yield();
    }
};

int write(const std::string& root, double seconds, std::uint32_t stable, std::uint32_t volatiles) {
    Table t(root, QuilMemtab::writer);
    for (std::uint32_t n = 0; n < stable; ++n) t.hosts->hostIs(test::recordOf(n, 1));
    std::cout << "ready" << std::endl;
    std::mt19937 random(1);
    std::uint64_t writes = 0;
    std::uint32_t generation = 1;
    auto& writer = *t.hosts->hostControl().localWriter();
    std::uint32_t mostBuckets = 0, leastBuckets = ~0u;
    std::optional<Yields> yields(std::in_place);  // for half of the time
    bool isFilling = true;
    const double start = t.now();
    // Where other work takes its time, it goes on until it has been through all sizes.
    const auto isOver = [&](double now) {
        return now >= start + (seconds < 3 || writer.writerCounters().shrinks > 0 ? seconds : 20 * seconds);
    };
    for (double now = start; !isOver(now); t.loop.runOnce(0), now = t.now()) {
        ++generation;
        if (now > start + seconds / 2) yields.reset();
        if (writer.members() > stable + volatiles / 2) isFilling = false;
        if (writer.members() < stable + volatiles / 16) isFilling = true;
        for (int i = 0; i < 200; ++i, ++writes) {
            const std::uint32_t n = stable + random() % volatiles;
            const unsigned dice = random() % 16;
            if (dice == 15) {
                t.hosts->hostIs(test::recordOf(random() % stable, generation));
            } else if (dice < (isFilling ? 4u : 14u)) {
                t.hosts->hostDel(test::keyOf(n));
            } else {
                t.hosts->hostIs(test::recordOf(n, generation));
            }
        }
        mostBuckets = std::max(mostBuckets, writer.numBuckets());
        if (mostBuckets > 2 * writer.numBuckets()) leastBuckets = std::min(leastBuckets, writer.numBuckets());
    }
    t.hosts->hostIs(test::recordOf(0, 0xffffffffu));
    std::cout << "wrote " << writes << " grows " << writer.writerCounters().grows << " shrinks "
              << writer.writerCounters().shrinks << " buckets " << leastBuckets << " to " << mostBuckets
              << " compactions " << writer.conquer().counters().compactions << std::endl;
    for (const double end = t.now() + 2; t.now() < end;) t.loop.runOnce(0.05);  // readers catch up
    for (const auto& record : t.hosts->hosts())
        std::cout << record.key().str() << " " << test::generationOf(record) << "\n";
    return 0;
}

int full(const std::string& directory, std::uint32_t kib) {
    const std::string size = Quil::cat("size=", kib, "k");
    if (unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("tmpfs", directory.c_str(), "tmpfs", 0, size.c_str()) != 0) {
        std::cout << "not allowed to mount" << std::endl;
        return 0;
    }
    std::optional<Table> table;
    std::uint32_t n = 0;
    std::string error;
    try {
        table.emplace(directory, QuilMemtab::writer);
        for (;; ++n) table->hosts->hostIs(test::recordOf(n, 1));
    } catch (const Quil::MemoryResourceException& e) {
        error = e.what();
    }
    if (!table) {
        const bool isClean = !std::filesystem::exists(directory + "/l2rib/output/host/host/slots");
        std::cout << "no room, " << (isClean ? "nothing left: " : "files left: ") << error << std::endl;
        return 0;
    }
    Table& t = *table;
    // The failed write has left no trace; rewrites, removals and insertions in their place go on; a reader sees it all.
    Table reader(directory, QuilMemtab::reader);
    for (std::uint32_t i = 0; i < n; i += 2) t.hosts->hostDel(test::keyOf(i));
    for (std::uint32_t i = 0; i < n / 2; ++i) t.hosts->hostIs(test::recordOf(i, 2));
    Quil::String reason;
    if (!t.hosts->hostControl().validate(reason)) t.fail(reason);
    std::uint32_t seen = 0;
    for (const auto& record : reader.hosts->hosts()) seen += test::isWhole(record);
    std::cout << "full after " << n << ", then " << seen << ": " << error << std::endl;
    return 0;
}

int fill(const std::string& root, std::uint32_t count) {
    Table t(root, QuilMemtab::writer);
    for (std::uint32_t n = 0; n < count; ++n) t.hosts->hostIs(test::recordOf(n, 7));
    std::cout << "ready" << std::endl;
    t.loop.run();
    return 0;
}

int lookup(const std::string& root, double seconds, std::uint32_t stable, std::uint32_t volatiles) {
    Table t(root, QuilMemtab::reader);
    std::mt19937 random(2);
    std::map<std::uint32_t, std::uint32_t> lastGeneration;
    std::uint64_t lookups = 0, found = 0;
    for (const double end = t.now() + seconds; t.now() < end; t.loop.runOnce(0)) {
        for (int i = 0; i < 500; ++i, ++lookups) {
            const std::uint32_t n = random() % (stable + volatiles);
            L2Rib::HostAndSource record;
            const bool there = t.hosts->host(test::keyOf(n), record);
            if (!there && n < stable) t.fail(Quil::cat("a stable record is missing: ", n));
            if (!there) continue;
            ++found;
            if (!test::isWhole(record)) t.fail("a torn record: " + record.str());
            if (!(record.key() == test::keyOf(n))) t.fail("another key's record: " + record.str());
            std::uint32_t& last = lastGeneration[n];
            if (test::generationOf(record) < last) t.fail("an older record after a newer one: " + record.str());
            last = test::generationOf(record);
        }
    }
    if (t.hosts->hostControl().corruptions()) t.fail("corruption reported");
    const auto* reader = t.hosts->hostControl().reader();
    std::cout << "lookups " << lookups << " found " << found << " lookasides " << reader->lookasides() << " restarts "
              << reader->restarts() << std::endl;
    return 0;
}

// Whatever it says of a table that is being changed, it comes back.
void check(const std::string& path) {
    Mem::SharedDirectory directory(path);
    const Mem::FileDescriptor connection = Mem::KickSocket::connect(path);
    Quil::String reason;
    Memtab::Validator(Quil::Trace::handler("peer"), "table").validate(directory, 0, nullptr, reason);
    Memtab::summarize(Quil::Trace::handler("peer"), directory, reason);
}

int walk(const std::string& root, double seconds, std::uint32_t stable) {
    Table t(root, QuilMemtab::reader);
    std::uint64_t walks = 0;
    for (const double end = t.now() + seconds; t.now() < end; t.loop.runOnce(0), ++walks) {
        check(t.hosts->hostControl().directory());
        std::vector<bool> seen(stable);
        std::pair<std::uint32_t, Bridging::MacVlanPair> last;
        bool first = true;
        for (const auto& record : t.hosts->hosts()) {
            if (!test::isWhole(record)) t.fail("a torn record: " + record.str());
            const std::pair order(Verro::Util::reverse(record.key().hash()), record.key());
            if (!first && !(last < order)) t.fail("out of order: " + record.str());
            last = order;
            first = false;
            const std::uint32_t n = record.host().preference() ^ test::generationOf(record);
            if (n < stable) seen[n] = true;
        }
        for (std::uint32_t n = 0; n < stable; ++n) {
            if (!seen[n]) t.fail(Quil::cat("a stable record was passed over: ", n));
        }
    }
    if (t.hosts->hostControl().corruptions()) t.fail("corruption reported");
    std::cout << "walks " << walks << std::endl;
    return 0;
}

struct Follower : L2Rib::HostOutput::NotifieeConst {
    std::map<Bridging::MacVlanPair, std::uint32_t> known;
    std::uint64_t calls = 0;
    void onHost(const Bridging::MacVlanPair& key) override {
        ++calls;
        L2Rib::HostAndSource record;
        if (notifier()->host(key, record)) {
            if (!test::isWhole(record)) Table::fail("a torn record: " + record.str());
            known[key] = test::generationOf(record);
        } else {
            known.erase(key);
        }
    }
};

int follow(const std::string& root) {
    Follower follower;
    Table t(root, QuilMemtab::reader, &follower);
    std::cout << "ready" << std::endl;
    const auto done = [&] { return follower.known[test::keyOf(0)] == 0xffffffffu; };
    if (!test::turnUntil(t.loop, done, 120)) t.fail("the last change was never told");
    // Until nothing more is told for a while.
    for (std::uint64_t before = 0; before != follower.calls;) {
        before = follower.calls;
        for (const double end = t.now() + 0.5; t.now() < end;) t.loop.runOnce(0.05);
    }
    for (const auto& [key, generation] : follower.known) std::cout << key.str() << " " << generation << "\n";
    return 0;
}

int dump(const std::string& root) {
    Table t(root, QuilMemtab::reader);
    for (const auto& record : t.hosts->hosts()) {
        if (!test::isWhole(record)) t.fail("a torn record: " + record.str());
        std::cout << record << "\n";
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    const auto number = [&](std::size_t i) { return i < args.size() ? std::atof(args[i].c_str()) : 0.0; };
    const auto count = [&](std::size_t i) { return static_cast<std::uint32_t>(number(i)); };
    if (args.size() < 2) return 2;
    if (args[0] == "write") return write(args[1], number(2), count(3), count(4));
    if (args[0] == "fill") return fill(args[1], count(2));
    if (args[0] == "full") return full(args[1], count(2));
    if (args[0] == "lookup") return lookup(args[1], number(2), count(3), count(4));
    if (args[0] == "walk") return walk(args[1], number(2), count(3));
    if (args[0] == "follow") return follow(args[1]);
    if (args[0] == "dump") return dump(args[1]);
    return 2;
}
