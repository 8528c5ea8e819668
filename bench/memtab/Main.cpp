// bench-memtab: the table engine beside three others, in the same run and on the same records.
//
//   bench-memtab [HOSTS...]      default 16384 131072 1048576
//
// limit    a random cell of a flat array in /dev/shm under a version word (FlatArray.h)
// bare     bucket word, chain, versioned copy, queue record, and nothing around them (BareTable.h)
// LMDB     when liblmdb-dev is installed (LmdbTable.h)
// engine   this project's table
//
// Reader and writer are two processes. Keys are in random order. Each figure is the median of several rounds.
#include <filesystem>
#include <memory>
#include <random>

#include "BareTable.h"
#include "EngineTable.h"
#include "FlatArray.h"
#include "Measure.h"
#include "Sizes.h"
#include "Wakeup.h"
#ifdef L2RIB_HAS_LMDB
#include "LmdbTable.h"
#endif

namespace bench {
namespace {

#ifdef L2RIB_HAS_LMDB
constexpr bool hasLmdb = true;
#else
constexpr bool hasLmdb = false;
struct LmdbTable {  // never used
    explicit LmdbTable(const std::string&) {}
    void write(const Entry&, std::uint32_t) {}
    void remove(const Entry&) {}
    bool lookup(const Entry&, Value&) const { return false; }
    template <class F>
    void forEach(F&&) const {}
    std::uint64_t bytes() const { return 0; }
};
#endif

// The four tables of one process: the writer's engine, or a reader's.
template <class Engine>
struct Tables {
    FlatArray& flat;
    BareTable& bareTable;
    LmdbTable* lmdbTable;
    Engine& engineTable;

    template <class F>
    void forEach(F&& run) {
        run(limit, flat);
        run(bare, bareTable);
        if (lmdbTable) run(lmdb, *lmdbTable);
        run(engine, engineTable);
    }
};

class Bench {
 public:
    Bench(std::uint32_t hosts, std::string path)
        : hosts_(hosts),
          rounds_(hosts > 500000  ? 3
                  : hosts > 50000 ? 5
                                  : 9),
          path_(std::move(path)) {
        for (std::uint32_t i = 0; i < hosts; ++i) {
            entries_.push_back(entryOf(2 * i));
            missing_.push_back(entryOf(2 * i + 1));
        }
        std::shuffle(entries_.begin(), entries_.end(), std::mt19937(1));
        std::shuffle(missing_.begin(), missing_.end(), std::mt19937(2));
    }

    void run() {
        printHead("nanoseconds for one");
        changes();
        lookups(false);
        lookups(true);
        printHead("microseconds");
        growth();
        drop();
        const Latencies wakeUp = wakeUps(path_, hosts_);
        print("wake-up, median", hosts_, wakeUp.median);
        print("wake-up, 99 %", hosts_, wakeUp.rare);
        print("burst of 100000", hosts_, burst(path_, entries_));
        printHead("bytes for one");
        print("of fixed size", hosts_, bytesFixed_);
        print("grown", hosts_, bytesGrown_);
    }

 private:
    // The tables have the size they need from the start; nobody reads.
    void changes() {
        std::vector<double> inserts[contestants], removals[contestants];
        for (int round = 0; round < rounds_; ++round) {
            makeTables({.fixedCapacity = true});
            writers().forEach(
                [&](Contestant c, auto& table) { inserts[c].push_back(timeOf([&] { fill(table, 1); })); });
            writers().forEach([&](Contestant c, auto& table) {
                removals[c].push_back(timeOf([&] {
                    for (const Entry& entry : entries_) table.remove(entry);
                }));
            });
        }
        makeTables({.fixedCapacity = true});
        writers().forEach([&](Contestant, auto& table) { fill(table, 1); });
        print("insert", inserts);
        compare(writers(), "rewrite", [&](auto& table) { fill(table, 2); });
        print("remove", removals);
        bytesFixed_ = bytesPerEntry();
    }

    void lookups(bool writerIsBusy) {
        const char* const names[2][3] = {{"lookup, hit", "lookup, miss", "lookup, dependent"},
                                         {"  writer busy: hit", "  writer busy: miss", "  w. busy: dependent"}};
        const auto& name = names[writerIsBusy];
        Shared<std::atomic<int>> turn;
        const auto read = [&] {
            EngineReader engineTable(path_ + "/engine");
            std::unique_ptr<LmdbTable> lmdbTable;
            if (hasLmdb) lmdbTable = std::make_unique<LmdbTable>(path_ + "/lmdb");
            const Tables<EngineReader> tables{*flat_, *bare_, lmdbTable.get(), engineTable};
            compare(
                tables, name[0], [&](auto& table) { look(table, entries_); }, &*turn);
            compare(
                tables, name[1], [&](auto& table) { look(table, missing_); }, &*turn);
            compare(
                tables, name[2], [&](auto& table) { lookDependent(table); }, &*turn);
            if (!writerIsBusy)
                compare(
                    tables, "iterate", [&](auto& table) { table.forEach(consume); }, &*turn);
        };
        std::uint32_t at = 0;
        beside(read, [&] {
            if (!writerIsBusy) return void(usleep(10000));
            // Rewrites the table that is read.
            writers().forEach([&](Contestant c, auto& table) {
                for (int i = 0; i < 1000 && c == *turn; ++i, ++at) table.write(entries_[at % hosts_], at);
            });
        });
    }

    // From empty, growing as it must: what one write may cost.
    void growth() {
        Figures worst = noFigures, rare = noFigures;
        makeTables({});
        writers().forEach([&](Contestant c, auto& table) {
            std::vector<double> times;
            times.reserve(hosts_);
            for (const Entry& entry : entries_) {
                const double begin = nanoseconds();
                table.write(entry, 1);
                times.push_back(nanoseconds() - begin);
            }
            rare[c] = quantile(times, 0.999) / 1000;
            worst[c] = times.back() / 1000;
        });
        print("growing write, 99.9 %", hosts_, rare);
        print("growing write, worst", hosts_, worst);
        bytesGrown_ = bytesPerEntry();
    }

    void makeTables(Memtab::Options options) {
        options.maxSize = hosts_;
        drop();
        flat_ = std::make_unique<FlatArray>(path_ + "/flat", hosts_);
        bare_ = std::make_unique<BareTable>(path_ + "/bare", hosts_);
        if (hasLmdb) lmdb_ = std::make_unique<LmdbTable>(path_ + "/lmdb");
        engine_ = std::make_unique<EngineWriter>(path_ + "/engine", options);
    }
    void drop() {
        flat_.reset(), bare_.reset(), lmdb_.reset(), engine_.reset();
        std::filesystem::remove_all(path_ + "/lmdb");
    }
    Tables<EngineWriter> writers() { return {*flat_, *bare_, lmdb_.get(), *engine_}; }
    Figures bytesPerEntry() {
        Figures bytes = noFigures;
        writers().forEach([&](Contestant c, auto& table) { bytes[c] = double(table.bytes()) / hosts_; });
        return bytes;
    }

    template <class Table>
    void fill(Table& table, std::uint32_t generation) {
        for (const Entry& entry : entries_) table.write(entry, generation);
    }
    template <class Table>
    static void look(Table& table, const std::vector<Entry>& entries) {
        Value value;
        for (const Entry& entry : entries) {
            table.lookup(entry, value);
            consume(value);
        }
    }
    // Which key comes next is known only when the last record is.
    template <class Table>
    void lookDependent(Table& table) {
        Value value;
        for (std::uint32_t n = 0; n < hosts_; n += 1u + value.value().source() - L2Rib::sourceBgp) {
            table.lookup(entries_[n], value);
        }
        consume(value);
    }

    template <class F>
    double timeOf(F&& run) const {
        const double begin = nanoseconds();
        run();
        return (nanoseconds() - begin) / hosts_;
    }
    void print(const char* what, std::vector<double> (&times)[contestants]) const {
        Figures figures;
        for (int c = 0; c < contestants; ++c) figures[c] = quantile(times[c], 0.5);
        bench::print(what, hosts_, figures);
    }
    static void print(const char* what, std::uint32_t hosts, const Figures& figures) {
        bench::print(what, hosts, figures);
    }
    // turn: tells the writing process which table is read.
    template <class Engine, class F>
    void compare(Tables<Engine> tables, const char* what, F&& run, std::atomic<int>* turn = nullptr) const {
        std::array<std::function<double()>, contestants> runs;
        tables.forEach([&](Contestant c, auto& table) {
            runs[c] = [this, &run, &table, c, turn] {
                if (turn) *turn = c;
                return timeOf([&] { run(table); });
            };
        });
        bench::print(what, hosts_, medians(rounds_, runs));
    }

    const std::uint32_t hosts_;
    const int rounds_;
    const std::string path_;
    std::vector<Entry> entries_, missing_;
    std::unique_ptr<FlatArray> flat_;
    std::unique_ptr<BareTable> bare_;
    std::unique_ptr<LmdbTable> lmdb_;
    std::unique_ptr<EngineWriter> engine_;
    Figures bytesFixed_ = noFigures, bytesGrown_ = noFigures;
};

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    const auto sizes = bench::sizesOf("bench-memtab", argc, argv);
    const std::string path = "/dev/shm/l2rib-bench-" + std::to_string(getpid());
    std::filesystem::create_directories(path);
    for (const std::uint32_t size : sizes) bench::Bench(size, path).run();
    std::filesystem::remove_all(path);
    return 0;
}
