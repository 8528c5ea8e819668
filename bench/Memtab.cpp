// bench-memtab: lookup, rewrite, insert and iterate, reader and writer in two processes, as nanoseconds and as ratios.
//
//   bench-memtab [HOSTS...]      default 16384 131072
//
// Three rows for every measure, in the same run: the limit (a random cell of a flat array in /dev/shm under a version
// word), the bare structure (BareTable.h), and the engine. Each figure is the median of several rounds. Lookups hit;
// keys are in random order, each independent of the last.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <random>
#include <vector>

#include "BareTable.h"
#include "L2Rib/HostOutput.h"

namespace {

using Key = Bridging::MacVlanPair;
using Value = L2Rib::HostOutput::Wrapper;
using OpsType = Memtab::Ops<Key, Value>;

constexpr int rounds = 9;

volatile std::uint64_t consumed;  // keeps what is read alive

Value valueOf(std::uint32_t number, std::uint32_t generation) {
    L2Rib::Host host(Key(Lanx::EthAddr::fromNumber(0x020000000000ULL + number), Bridging::VlanId(10)));
    host.seqNoIs(Keel::Seqno32(generation));
    L2Rib::HostAndSource record(host.key());
    record.hostIs(host);
    record.sourceIs(L2Rib::sourceBgp);
    return Value(record);
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double nanosecondsPer(std::uint32_t operations, const std::function<void()>& run) {
    const auto begin = std::chrono::steady_clock::now();
    run();
    const std::chrono::duration<double, std::nano> taken = std::chrono::steady_clock::now() - begin;
    return taken.count() / operations;
}

struct Times {
    double limit, bare, engine;
};

// Runs the three in turn, round by round, so that a slow moment of the machine meets all of them; the first round warms
// up and does not count.
Times measure(std::uint32_t operations, const std::function<void()>& limit, const std::function<void()>& bare,
              const std::function<void()>& engine) {
    std::vector<double> l, b, e;
    for (int round = -1; round < rounds; ++round) {
        const double times[] = {nanosecondsPer(operations, limit), nanosecondsPer(operations, bare),
                                nanosecondsPer(operations, engine)};
        if (round < 0) continue;
        l.push_back(times[0]), b.push_back(times[1]), e.push_back(times[2]);
    }
    return {median(l), median(b), median(e)};
}

void print(const char* what, std::uint32_t hosts, const Times& t) {
    std::printf("%-8s  %8u  %8.1f  %8.1f  %8.1f  %8.2f  %8.2f\n", what, hosts, t.limit, t.bare, t.engine,
                t.engine / t.limit, t.engine / t.bare);
    std::fflush(stdout);
}

// The function in a process of its own; its figures come back through a pipe.
Times inAnotherProcess(const std::function<Times()>& run) {
    int ends[2];
    if (pipe(ends) != 0) std::abort();
    const pid_t child = fork();
    if (child == 0) {
        const Times times = run();
        if (write(ends[1], &times, sizeof times) != sizeof times) _exit(1);
        _exit(0);
    }
    Times times{};
    close(ends[1]);
    if (read(ends[0], &times, sizeof times) != sizeof times) std::abort();
    close(ends[0]);
    waitpid(child, nullptr, 0);
    return times;
}

class Bench {
 public:
    explicit Bench(std::uint32_t hosts)
        : hosts_(hosts), path_("/dev/shm/l2rib-bench-" + std::to_string(getpid())), order_(hosts) {
        std::filesystem::create_directories(path_);
        for (std::uint32_t i = 0; i < hosts; ++i) order_[i] = i;
        std::shuffle(order_.begin(), order_.end(), std::mt19937(1));
        stored_ = {L2Rib::HostAndSource::fwkFields().typeName, "bench", sizeof(Value), &default_};
        // The engine grows as it would for a maximum of so many; at the end all three hold the same.
        insert();
    }
    ~Bench() { std::filesystem::remove_all(path_); }

    void run() {
        rewrite();
        print("lookup", hosts_, inAnotherProcess([this] { return lookup(); }));
        print("iterate", hosts_, inAnotherProcess([this] { return iterate(); }));
    }

 private:
    using Writer = Memtab::MemtabWriter<Key, Value, OpsType>;
    using Reader = Memtab::MemtabReader<Key, Value, OpsType>;

    // Fresh tables every round: an insertion happens once.
    void insert() {
        Memtab::Options options;
        options.maxSize = hosts_;
        options.fixedCapacity = true;  // as the other two, which do not grow
        const std::uint32_t slots = std::bit_ceil(hosts_);
        const Times t = measure(
            hosts_,
            [&] {
                for (const std::uint32_t n : order_) flat_->write(n, valueOf(n, 1));
            },
            [&] {
                for (const std::uint32_t n : order_) bare_->write(valueOf(n, 1));
            },
            [&] {
                for (const std::uint32_t n : order_) writer_->write(valueOf(n, 1), true);
            },
            [&] {
                flat_ = std::make_unique<bench::FlatArray<Value>>(path_ + "/flat", hosts_);
                bare_ = std::make_unique<bench::BareTable<Key, Value>>(path_ + "/bare", slots);
                writer_ = std::make_unique<Writer>(debug_, "bench", options, stored_);
                writer_->attach(directory_, 1);
            });
        print("insert", hosts_, t);
    }

    static Times measure(std::uint32_t operations, const std::function<void()>& limit,
                         const std::function<void()>& bare, const std::function<void()>& engine,
                         const std::function<void()>& prepare) {
        std::vector<double> l, b, e;
        for (int round = 0; round < rounds; ++round) {
            prepare();
            l.push_back(nanosecondsPer(operations, limit));
            b.push_back(nanosecondsPer(operations, bare));
            e.push_back(nanosecondsPer(operations, engine));
        }
        return {median(l), median(b), median(e)};
    }

    void rewrite() {
        std::uint32_t generation = 1;
        print("rewrite", hosts_,
              ::measure(
                  hosts_,
                  [&] {
                      for (const std::uint32_t n : order_) flat_->write(n, valueOf(n, generation));
                  },
                  [&] {
                      for (const std::uint32_t n : order_) bare_->write(valueOf(n, generation));
                  },
                  [&] {
                      for (const std::uint32_t n : order_) writer_->write(valueOf(n, generation), true);
                      ++generation;
                  }));
    }

    Times lookup() {
        Reader reader = attached();
        std::vector<Key> keys;
        for (const std::uint32_t n : order_) keys.push_back(valueOf(n, 0).fwkKey());
        Value value;
        bool found = false;
        return ::measure(
            hosts_,
            [&] {
                for (const std::uint32_t n : order_) flat_->read(n, value), consume(value);
            },
            [&] {
                for (const Key& key : keys) bare_->lookup(key, value), consume(value);
            },
            [&] {
                for (const Key& key : keys) reader.lookup(key, found, &value), consume(value);
            });
    }

    Times iterate() {
        Reader reader = attached();
        Value value;
        return ::measure(
            hosts_,
            [&] {
                for (std::uint32_t n = 0; n < hosts_; ++n) flat_->read(n, value), consume(value);
            },
            [&] { bare_->forEach([](const Value& v) { consume(v); }); },
            [&] {
                Reader::IterHint hint;
                for (bool more = reader.first(value, hint); more; more = reader.next(value.fwkKey(), value, hint)) {
                    consume(value);
                }
            });
    }

    Reader attached() {
        Reader reader(debug_);
        Quil::String reason;
        if (!reader.attach(directory_, 1, stored_, reason)) {
            std::fprintf(stderr, "bench-memtab: %s\n", reason.c_str());
            std::exit(2);
        }
        return reader;
    }
    static void consume(const Value& value) { consumed = consumed + value.value().source(); }

    const std::uint32_t hosts_;
    const std::string path_;
    std::vector<std::uint32_t> order_;  // of the keys
    Value default_;
    Memtab::SlotTable::Format stored_;
    Quil::Trace& debug_ = Quil::Trace::handler("bench");
    Mem::SharedDirectory directory_{path_ + "/table"};
    std::unique_ptr<bench::FlatArray<Value>> flat_;
    std::unique_ptr<bench::BareTable<Key, Value>> bare_;
    std::unique_ptr<Writer> writer_;
};

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::uint32_t> sizes;
    for (int i = 1; i < argc; ++i) {
        const long size = std::atol(argv[i]);
        if (size < 1 || size > 1 << 24) {
            std::fprintf(stderr, "bench-memtab: HOSTS %s: < 1 or > %d not allowed\n", argv[i], 1 << 24);
            return 2;
        }
        sizes.push_back(static_cast<std::uint32_t>(size));
    }
    if (sizes.empty()) sizes = {16384, 131072};
    std::printf("nanoseconds for one host         limit      bare    engine  x limit    x bare\n");
    std::printf("measure      hosts\n");
    for (const std::uint32_t size : sizes) Bench(size).run();
    return 0;
}
