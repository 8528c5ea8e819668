// bench-consumer: how fast a consumer is told of a table and of a burst of changes, and how long its turns are.
//
//   bench-consumer [HOSTS...]      default 16384 131072 1048576
//
// Writer and consumer are two processes. The consumer is a client state machine whose handlers read the host's record.
// A turn is one turn of its event loop: the table's own work and a review together.
#include <sys/resource.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "Corestore/EntityManager.h"
#include "L2Rib/L2Rib.h"
#include "Processes.h"
#include "Records.h"
#include "Sizes.h"

namespace bench {
namespace {

constexpr std::uint32_t burstSize = 100000;

class Consumer : public L2Rib::L2RibClientSm {
 public:
    using L2RibClientSm::L2RibClientSm;
    void doAddHost(const Key& key) override { told(key); }
    void doUpdateHost(const Key& key) override { told(key); }
    void doRemoveHost(const Key& key) override { told(key); }
    std::uint64_t calls = 0;
    double last = 0;

 private:
    void told(const Key& key) {
        L2Rib::HostAndSource record;
        l2RibOutput()->host(key, record);
        consume(Value(record));
        ++calls;
        last = nanoseconds();
    }
};

struct Shown {
    std::atomic<bool> filled{false}, ready{false}, go{false}, restart{false};
    std::atomic<double> begin{0};
};

// Bytes of this process's own memory.
double ownMemory() {
    std::ifstream in("/proc/self/statm");
    double size = 0, resident = 0, shared = 0;
    in >> size >> resident >> shared;
    return (resident - shared) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

// One phase: the time to the last call, and the lengths of the turns until the condition holds.
template <class Done>
void phase(const char* what, std::uint32_t hosts, double quantum, Consumer& client, Quil::EventLoop& loop, double begin,
           Done&& done) {
    const std::uint64_t before = client.calls;
    std::vector<double> turns;
    while (!done()) {
        // Sleeps first, so that a turn is work alone.
        const double wait = std::clamp(loop.clock()->nextWakeup() - loop.clock()->now(), 0.0, 0.001);
        usleep(static_cast<useconds_t>(wait * 1e6));
        const double start = nanoseconds();
        loop.runOnce(0);
        turns.push_back((nanoseconds() - start) / 1e6);
    }
    const double taken = (client.last - begin) / 1e9;
    const auto calls = static_cast<double>(client.calls - before);
    const double rare = quantile(turns, 0.999), worst = turns.back();
    std::printf("%-10s  %8u  %8s  %9.3f  %9.0f  %10.0f  %8.2f  %8.2f\n", what, hosts, quantum > 1000 ? "none" : "10 ms",
                taken, calls, calls / taken, rare, worst);
    std::fflush(stdout);
}

// The writer goes and comes back with the table that it left: the reader compares both times, and tells nothing.
void restart(std::uint32_t hosts, const L2Rib::HostOutput& table, const Consumer& client, Quil::EventLoop& loop,
             Shown& shown) {
    const std::uint64_t before = client.calls;
    double longest = 0;
    const auto turnUntil = [&](bool isMounted) {
        while (table.hostControl().mounted() != isMounted) {
            const double start = nanoseconds();
            loop.runOnce(0);
            longest = std::max(longest, nanoseconds() - start);
        }
    };
    shown.restart = true;
    turnUntil(false);
    turnUntil(true);
    for (const double end = nanoseconds() + 2e8; nanoseconds() < end;) loop.runOnce(0.001);
    std::printf("%-10s  %8u  %.1f milliseconds the longest turn, %llu calls\n", "restart", hosts, longest / 1e6,
                static_cast<unsigned long long>(client.calls - before));
}

void consume(const std::string& path, std::uint32_t hosts, double quantum, Shown& shown) {
    while (!shown.filled) usleep(1000);
    Quil::EventLoop loop;
    auto em = Quil::makePtr<Corestore::EntityManager>(loop, path);
    auto table = L2Rib::hostOutputFactory("host");
    auto context = L2Rib::Plugin::contextFactory();
    context->entityManagerIs(em);
    context->l2RibOutputIs(table);
    context->clockIs(loop.clock());
    auto client = Quil::makePtr<Consumer>("bench", context);
    client->backlogQuantumIs(quantum);
    client->sourceFilterIs(L2Rib::sourceAll);
    const double memory = ownMemory(), begin = nanoseconds();
    em->mount("l2rib/output", table, QuilMemtab::MountInfo::reader("host"));
    const auto settled = [&] {
        return client->reviewedOnce() && client->changedHost().empty() && client->source().size() == hosts;
    };
    phase("mount", hosts, quantum, *client, loop, begin, settled);
    // Until nothing more is told, for longer than the review timer may wait.
    for (double quiet = nanoseconds(); nanoseconds() - std::max(quiet, client->last) < 5.5e9;) loop.runOnce(0.01);
    const double perHost = (ownMemory() - memory) / hosts;
    shown.ready = true;
    while (!shown.go) loop.runOnce(0.0001);
    const std::uint64_t last = std::uint64_t(hosts) + burstSize;
    const auto caughtUp = [&] { return table->hostControl().sequence() == last && client->changedHost().empty(); };
    phase("burst", hosts, quantum, *client, loop, shown.begin, caughtUp);
    restart(hosts, *table, *client, loop, shown);
    std::printf("%-10s  %8u  %.0f bytes of the consumer's own memory for a host\n", "memory", hosts, perHost);
    std::fflush(stdout);
}

// The table's writer.
class Writer {
 public:
    Writer(const std::string& path, std::uint32_t hosts)
        : hosts_(hosts), em_(loop_, path), info_(QuilMemtab::MountInfo::writer("host", hosts)) {
        mount();
        for (std::uint32_t n = 0; n < hosts; ++n) table_->hostIs(valueOf(entryOf(n), 1).value());
        info_.keepOverRestart = true;
    }
    void turn(Quil::Seconds atMost) { loop_.runOnce(atMost); }
    void burst() {
        for (std::uint32_t i = 0; i < burstSize; ++i) {
            const auto n = static_cast<std::uint32_t>(i * 7919ull % hosts_);
            table_->hostIs(valueOf(entryOf(n), i + 2).value());
            if (i % 256 == 0) turn(0);
        }
    }
    void restart() {
        em_.unmount("l2rib/output", "host");
        mount();
    }

 private:
    void mount() {
        table_ = L2Rib::hostOutputFactory("host");
        em_.mount("l2rib/output", table_, info_);
    }
    const std::uint32_t hosts_;
    Quil::EventLoop loop_;
    Corestore::EntityManager em_;
    QuilMemtab::MountInfo info_;
    Quil::Ptr<L2Rib::HostOutput> table_;
};

void run(const std::string& path, std::uint32_t hosts) {
    for (const double quantum : {0.01, 1e9}) {
        Shared<Shown> shown;
        std::optional<Writer> writer;  // made in this process alone: a fork would hold its lock as well
        beside([&] { consume(path, hosts, quantum, *shown); },
               [&] {
                   if (!writer) {
                       writer.emplace(path, hosts);
                       shown->filled = true;
                   }
                   writer->turn(0.001);
                   if (shown->restart.exchange(false)) writer->restart();
                   if (!shown->ready || shown->go) return;
                   shown->begin = nanoseconds();
                   shown->go = true;
                   writer->burst();
               });
    }
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    const auto sizes = bench::sizesOf("bench-consumer", argc, argv);
    const std::string path = "/dev/shm/l2rib-bench-" + std::to_string(getpid());
    std::filesystem::create_directories(path);
    std::printf("%-10s  %8s  %8s  %9s  %9s  %10s  %8s  %8s\n", "phase", "hosts", "quantum", "seconds", "calls",
                "calls/s", "99.9 %", "worst");
    std::printf("%-10s  %8s  %8s  %9s  %9s  %10s  %19s\n", "", "", "", "", "", "", "milliseconds a turn");
    for (const std::uint32_t size : sizes) bench::run(path, size);
    std::filesystem::remove_all(path);
    return 0;
}
