// bench-agent: how fast the agent merges, how soon a consumer is told, and what a host costs.
//
//   bench-agent [HOSTS...]      default 16384 131072
//
// Three processes: one writes the tables of 1, 4 or 8 sources, one merges them, one follows the output. Every source
// has every host; the first source's win, and lead to 256 groups of two destinations. Rows:
//   merge     the tables are full when the agent starts: until all is elected
//   changes   16384 hosts change as fast as they can be written: until the consumer has been told of all
//   change    one host at a time: from before the write until the consumer's handler runs
//   group     the same for one group, behind which are all hosts
//   restart   a new agent goes on with the output tables: from its start until all is elected again
// The limit of a change: a byte through two socket pairs, from process to process to process.
#include <malloc.h>
#include <poll.h>
#include <sys/socket.h>

#include <filesystem>
#include <string>

#include "Corestore/EntityManager.h"
#include "L2Rib/TableInfo.h"
#include "Processes.h"
#include "Sizes.h"
#include "agent/PolicySm.h"

namespace bench {
namespace {

using namespace L2Rib;
using Key = Bridging::MacVlanPair;

constexpr std::uint32_t burstSize = 16384, rounds = 8, samples = 5000;
constexpr double patience = 60e9;  // nanoseconds
constexpr Source sources[] = {sourceBgp,   sourceVxlanStatic, sourceLocalDynamic, sourceMlag,
                              sourceDot1x, sourceMss,         sourceTestProto1,   sourceTestProto2};

struct Shape {
    std::uint32_t hosts, sources, groups;
};

// What the processes tell each other.
struct Told {
    std::atomic<bool> merged{false}, consumed{false}, ends{false};
    std::atomic<std::uint64_t> hostCalls{0}, groupCalls{0};
    std::atomic<double> lastCall{0}, mergeTime{0}, memory{0};
};

Key keyOf(std::uint32_t n) { return Key(Lanx::EthAddr::fromNumber(0x020000000000ULL + n), Bridging::VlanId(10)); }
ObjTuple groupOf(const Shape& shape, std::uint32_t n) { return {ObjId(1 + n % shape.groups), tableTypeLoadBalance}; }

QuilMemtab::MountInfo writerInfo(const char* collection, std::uint32_t entries, bool keeps = false) {
    auto info = QuilMemtab::MountInfo::writer(collection, entries);
    info.keepOverRestart = keeps;
    return info;
}

// The tables of one source, mounted for writing or for reading.
struct Input {
    Agent::InputTables tables{hostInputFactory("host"), {}};

    void mount(Corestore::EntityManager& em, std::uint32_t number, const Shape& shape, bool writes) {
        const std::string path = "l2rib/input/s" + std::to_string(number);
        const auto info = [&](const char* collection, std::uint32_t entries) {
            return writes ? writerInfo(collection, entries) : QuilMemtab::MountInfo::reader(collection);
        };
        em.mount(path, tables.hosts, info("host", shape.hosts));
        em.mount(path, tables.objects.loadBalances, info("lb", shape.groups));
        em.mount(path, tables.objects.labels, info("label", 1));
        em.mount(path, tables.objects.dests, info("dest", 2 * shape.groups));
    }
    bool isReadable() const {
        return tables.hosts->hostControl().isReadable() && tables.objects.loadBalances->lbControl().isReadable() &&
               tables.objects.labels->labelControl().isReadable() && tables.objects.dests->destControl().isReadable();
    }
};

class Producer {
 public:
    Producer(Quil::EventLoop& loop, const std::string& root, const Shape& shape)
        : shape_(shape), em_(loop, root), inputs_(shape.sources) {
        for (std::uint32_t s = 0; s < shape.sources; ++s) {
            inputs_[s].mount(em_, s, shape, true);
            for (std::uint32_t n = 0; n < shape.hosts; ++n) inputs_[s].tables.hosts->hostIs(hostOf(s, n, 0));
        }
        for (std::uint32_t g = 0; g < shape.groups; ++g) {
            for (const std::uint32_t d : {2 * g + 1, 2 * g + 2}) {
                const DestDataVxlan vtep(Lanx::IpGenAddr::fromIp4(0x0a000000u + d));
                inputs_[0].tables.objects.dests->destIs(Dest(DestId(d), vtep));
            }
            groupIs(g, false);
        }
    }
    // The time at which it is written rides along.
    void hostIs(std::uint32_t n) { inputs_[0].tables.hosts->hostIs(hostOf(0, n, nanoseconds())); }
    void groupIs(std::uint32_t g, bool isTurned) {
        LoadBalance group(LoadBalanceId(g + 1));
        group.nextIs(EcmpIndex(0), {ObjId(2 * g + (isTurned ? 2 : 1)), tableTypeDest});
        group.nextIs(EcmpIndex(1), {ObjId(2 * g + (isTurned ? 1 : 2)), tableTypeDest});
        inputs_[0].tables.objects.loadBalances->lbIs(group);
    }

 private:
    Host hostOf(std::uint32_t source, std::uint32_t n, double time) const {
        Host host(keyOf(n));
        host.lastMoveTimeIs(time);
        host.preferenceIs(200 - source);
        if (source == 0) {
            host.nextIs(groupOf(shape_, n));
        } else {
            CiDest port;
            port.intfIs(Lanx::IntfId(source));
            host.ciDestIs(port);
        }
        return host;
    }
    const Shape shape_;
    Corestore::EntityManager em_;
    std::vector<Input> inputs_;
};

// The agent's merge, without its sockets. Ends with the process.
void merge(const std::string& root, const Shape& shape, bool goesOn, Told& told) {
    const double begin = nanoseconds();
    Quil::EventLoop loop;
    Corestore::EntityManager em(loop, root);
    std::vector<Input> inputs(shape.sources);
    for (std::uint32_t s = 0; s < shape.sources; ++s) inputs[s].mount(em, s, shape, false);
    for (const auto& input : inputs) {
        while (!input.isReadable()) loop.runOnce(0.01);
    }
    auto output = hostOutputFactory("host");
    Agent::ObjectOutputs objects(policySmStatusFactory("status"));
    em.mount("l2rib/output", output, writerInfo("host", shape.hosts, goesOn));
    em.mount("l2rib/output", objects.loadBalances(), writerInfo("lb", shape.groups, goesOn));
    em.mount("l2rib/output", objects.labels(), writerInfo("label", 1, goesOn));
    em.mount("l2rib/output", objects.dests(), writerInfo("dest", 2 * shape.groups, goesOn));
    const double heap = static_cast<double>(mallinfo2().uordblks), filled = nanoseconds();
    Agent::PolicySm policy(loop.clock(), output, objects);
    if (goesOn) {
        objects.takeOver({}, *output);
        policy.takeOver(0);
    }
    for (std::uint32_t s = 0; s < shape.sources; ++s) policy.sourceIs(sources[s], inputs[s].tables);
    policy.settle();
    told.mergeTime = nanoseconds() - (goesOn ? begin : filled);
    told.memory = static_cast<double>(mallinfo2().uordblks) - heap;
    told.merged = true;
    while (!told.ends) loop.runOnce(0.1);
}

struct Follower : HostOutput::NotifieeConst, LoadBalanceOutput::NotifieeConst {
    Told& told;
    const Quil::Ptr<HostOutput> hosts = hostOutputFactory("host");
    const Quil::Ptr<LoadBalanceOutput> groups = loadBalanceOutputFactory("lb");
    explicit Follower(Told& t) : told(t) {
        HostOutput::NotifieeConst::notifierIs(hosts);
        LoadBalanceOutput::NotifieeConst::notifierIs(groups);
    }
    using HostOutput::NotifieeConst::onHost;
    using LoadBalanceOutput::NotifieeConst::onLb;
    void onHost(const Key& key) override {
        HostAndSource record;
        hosts->host(key, record);
        count(told.hostCalls);
    }
    void onLb(const LoadBalanceId&) override { count(told.groupCalls); }
    void count(std::atomic<std::uint64_t>& calls) {
        told.lastCall = nanoseconds();
        ++calls;
    }
};

void follow(const std::string& root, Told& told) {
    Quil::EventLoop loop;
    Corestore::EntityManager em(loop, root);
    Follower follower(told);
    em.mount("l2rib/output", follower.hosts, TableInfo().hostOutputInfo(QuilMemtab::reader));
    em.mount("l2rib/output", follower.groups, TableInfo().loadBalanceOutputInfo(QuilMemtab::reader));
    while (!told.ends) {
        loop.runOnce(0.1);
        told.consumed = follower.hosts->hostControl().mounted() && follower.groups->lbControl().mounted();
    }
}

class Process {
 public:
    explicit Process(const std::function<void()>& run) : pid_(fork()) {
        if (pid_ < 0) std::abort();
        if (pid_ == 0) {
            run();
            _exit(0);
        }
    }
    void wait() const {
        int status = 0;
        if (waitpid(pid_, &status, 0) == pid_ && status == 0) return;
        std::fprintf(stderr, "bench-agent: another process failed\n");
        std::exit(2);
    }

 private:
    const pid_t pid_;
};

// Turns the loop until the condition holds.
template <class Done>
void until(Quil::EventLoop& loop, double wait, Done&& done) {
    const double end = nanoseconds() + patience;
    while (!done()) {
        loop.runOnce(wait);
        if (nanoseconds() < end) continue;
        std::fprintf(stderr, "bench-agent: nothing came of it in a minute\n");
        std::exit(2);
    }
}

// Of single changes, microseconds from before each to the call that it brings.
template <class Change>
std::vector<double> delays(Quil::EventLoop& loop, Told& told, std::atomic<std::uint64_t>& calls, std::uint32_t count,
                           Change&& change) {
    std::vector<double> delays;
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint64_t before = calls;
        const double begin = nanoseconds();
        change(i);
        until(loop, 0.0002, [&] { return calls > before; });
        delays.push_back((told.lastCall - begin) / 1e3);
        usleep(100);
    }
    return delays;
}

struct Numbers {
    double mergePerSecond, bytesPerHost, changesPerSecond, half, rare, groupHalf, groupRare, restart;
};

Numbers measure(const std::string& root, const Shape& shape) {
    Numbers numbers{};
    Shared<Told> told;
    Quil::EventLoop loop;
    Producer producer(loop, root, shape);
    {
        const Process agent([&] { merge(root, shape, false, *told); });
        until(loop, 0.001, [&] { return told->merged.load(); });
        numbers.mergePerSecond = shape.hosts / (told->mergeTime / 1e9);
        numbers.bytesPerHost = told->memory / shape.hosts;
        const Process consumer([&] { follow(root, *told); });
        // What was there when it came is told first.
        until(loop, 0.001, [&] { return told->consumed && told->hostCalls >= shape.hosts; });
        std::vector<double> rates;
        for (std::uint32_t round = 0; round < rounds; ++round) {
            const std::uint64_t wanted = told->hostCalls + burstSize;
            const double begin = nanoseconds();
            for (std::uint32_t i = 0; i < burstSize; ++i) {
                // Each once, spread over the table.
                producer.hostIs(static_cast<std::uint32_t>((std::uint64_t(i) * 7919 + round) % shape.hosts));
                if (i % 256 == 0) loop.runOnce(0);
            }
            until(loop, 0.0002, [&] { return told->hostCalls >= wanted; });
            rates.push_back(burstSize / ((told->lastCall - begin) / 1e9));
        }
        numbers.changesPerSecond = quantile(rates, 0.5);
        auto single = delays(loop, *told, told->hostCalls, samples, [&](std::uint32_t i) {
            producer.hostIs(static_cast<std::uint32_t>((std::uint64_t(i) * 7919) % shape.hosts));
        });
        numbers.half = quantile(single, 0.5);
        numbers.rare = quantile(single, 0.999);
        auto group = delays(loop, *told, told->groupCalls, samples / 5,
                            [&](std::uint32_t i) { producer.groupIs(0, i % 2 == 0); });
        numbers.groupHalf = quantile(group, 0.5);
        numbers.groupRare = quantile(group, 0.999);
        told->ends = true;
        agent.wait();
        consumer.wait();
    }
    told->ends = told->merged = false;
    const Process again([&] { merge(root, shape, true, *told); });
    until(loop, 0.001, [&] { return told->merged.load(); });
    numbers.restart = told->mergeTime / 1e6;
    told->ends = true;
    again.wait();
    return numbers;
}

// A byte from one process to a second and on to a third, microseconds.
std::pair<double, double> limit() {
    int in[2], out[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, in) != 0 || socketpair(AF_UNIX, SOCK_SEQPACKET, 0, out) != 0) abort();
    struct Seen {
        std::atomic<std::uint64_t> count{0};
        std::atomic<double> when{0};
    };
    Shared<Seen> seen;
    const auto pass = [](int from, auto&& next) {
        for (char byte = 1; byte != 0;) {
            if (read(from, &byte, 1) != 1) return;
            next(byte);
        }
    };
    const Process middle([&] { pass(in[1], [&](char byte) { (void)!write(out[0], &byte, 1); }); });
    const Process last([&] {
        pass(out[1], [&](char) {
            seen->when = nanoseconds();
            ++seen->count;
        });
    });
    std::vector<double> delays;
    for (std::uint32_t i = 0; i <= samples; ++i) {
        const char byte = i < samples;
        const double begin = nanoseconds();
        (void)!write(in[0], &byte, 1);
        while (seen->count <= i) poll(nullptr, 0, 1);
        delays.push_back((seen->when - begin) / 1e3);
        usleep(100);
    }
    middle.wait();
    last.wait();
    for (const int fd : {in[0], in[1], out[0], out[1]}) close(fd);
    return {quantile(delays, 0.5), quantile(delays, 0.999)};
}

void run(const std::string& root, const std::vector<std::uint32_t>& sizes) {
    const auto [limitHalf, limitRare] = limit();
    std::printf("limit of a change: %.0f us half, %.0f us 99.9 %%\n\n", limitHalf, limitRare);
    std::printf("%7s %8s %6s | %10s | %10s | %23s | %15s | %8s | %6s\n", "sources", "hosts", "groups", "merge",
                "changes", "change, us (x limit)", "group, us", "restart", "memory");
    std::printf("%7s %8s %6s | %10s | %10s | %7s %6s %8s | %7s %7s | %8s | %6s\n", "", "", "", "hosts/s", "per s",
                "half", "x", "99.9 %", "half", "99.9 %", "ms", "B/host");
    const auto line = [&](const Shape& shape) {
        const Numbers n = measure(root, shape);
        std::printf("%7u %8u %6u | %10.0f | %10.0f | %7.0f %6.1f %8.0f | %7.0f %7.0f | %8.0f | %6.0f\n", shape.sources,
                    shape.hosts, shape.groups, n.mergePerSecond, n.changesPerSecond, n.half, n.half / limitHalf, n.rare,
                    n.groupHalf, n.groupRare, n.restart, n.bytesPerHost);
        std::fflush(stdout);
        std::filesystem::remove_all(root);
        std::filesystem::create_directories(root);
        return n;
    };
    for (const std::uint32_t sourceCount : {1u, 4u, 8u}) {
        std::vector<Numbers> rows;
        for (const std::uint32_t size : sizes) rows.push_back(line({size, sourceCount, 256}));
        if (rows.size() < 2) continue;
        std::printf("        the last size to the first: changes %.2f, change %.2f\n",
                    rows.back().changesPerSecond / rows[0].changesPerSecond, rows.back().half / rows[0].half);
    }
    std::vector<Numbers> rows;
    for (const std::uint32_t size : sizes) rows.push_back(line({size, 2, 1}));
    if (rows.size() < 2) return;
    std::printf("        the last size to the first: group %.2f\n", rows.back().groupHalf / rows[0].groupHalf);
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    const auto sizes = bench::sizesOf("bench-agent", argc, argv, {16384, 131072});
    const std::string root = "/dev/shm/l2rib-bench-" + std::to_string(getpid());
    std::filesystem::create_directories(root);
    bench::run(root, sizes);
    std::filesystem::remove_all(root);
    return 0;
}
