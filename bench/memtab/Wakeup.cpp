#include "Wakeup.h"

#include <sys/socket.h>

#include "BareTable.h"
#include "Corestore/EntityManager.h"
#include "L2Rib/L2Rib.h"

namespace bench {
namespace {

constexpr int wakeUpCount = 1000;
constexpr std::uint32_t burstSize = 100000;

struct Told {
    std::atomic<bool> ready{false};
    std::atomic<std::uint32_t> count{0};
    std::atomic<double> when{0};
};

// Waits until it sleeps, changes one thing, and takes the time to the moment at which the other process knew.
template <class Settle, class Change>
std::vector<double> delays(Told& told, Settle&& settle, Change&& change) {
    std::vector<double> times;
    while (!told.ready) settle();
    for (std::uint32_t i = 1; i <= wakeUpCount; ++i) {
        for (int j = 0; j < 5; ++j) {
            settle();
            usleep(100);
        }
        const double begin = nanoseconds();
        change(i);
        while (told.count < i) {
        }
        times.push_back((told.when - begin) / 1000);
    }
    return times;
}

void tell(Told& told) {
    told.when = nanoseconds();
    ++told.count;
}

std::vector<double> socketDelays() {
    Shared<Told> told;
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0) std::abort();
    std::vector<double> times;
    bool done = false;
    const auto other = [&] {
        told->ready = true;
        for (char byte; told->count < wakeUpCount && read(ends[1], &byte, 1) == 1;) tell(*told);
    };
    beside(other, [&] {
        if (std::exchange(done, true)) return void(usleep(1000));
        times = delays(
            *told, [] {},
            [&](std::uint32_t) {
                if (write(ends[0], "", 1) != 1) std::abort();
            });
    });
    close(ends[0]), close(ends[1]);
    return times;
}

// A host output table of this process.
struct Mounted {
    Quil::EventLoop loop;
    Corestore::EntityManager em;
    Quil::Ptr<L2Rib::HostOutput> hosts = L2Rib::hostOutputFactory("host");
    Mounted(const std::string& root, QuilMemtab::QuilMemtabType mode, std::uint32_t size,
            L2Rib::HostOutput::NotifieeConst* notifiee = nullptr)
        : em(loop, root) {
        if (notifiee) notifiee->notifierIs(hosts);
        QuilMemtab::MountInfo info = QuilMemtab::MountInfo::writer("host", size);
        info.mode = mode;
        em.mount("l2rib/output", hosts, info);
    }
};

struct Listener : L2Rib::HostOutput::NotifieeConst {
    std::function<void(const Key&)> onChange;
    void onHost(const Key& key) override { onChange(key); }
};

}  // namespace

Latencies wakeUps(const std::string& path, std::uint32_t hosts) {
    Shared<Told> told;
    Mounted writer(path, QuilMemtab::writer, hosts);
    const Entry entry = entryOf(0);
    std::vector<double> times;
    const auto other = [&] {
        Listener listener;
        listener.onChange = [&](const Key&) { tell(*told); };
        Mounted reader(path, QuilMemtab::reader, hosts, &listener);
        told->ready = true;
        while (told->count < wakeUpCount) reader.loop.runOnce(1);
    };
    bool done = false;
    beside(other, [&] {
        writer.loop.runOnce(0);
        if (std::exchange(done, true)) return void(usleep(1000));
        times = delays(
            *told, [&] { writer.loop.runOnce(0); },
            [&](std::uint32_t i) { writer.hosts->hostIs(valueOf(entry, i).value()); });
    });
    std::vector<double> socketTimes = socketDelays();
    Latencies latencies;
    latencies.median[limit] = quantile(socketTimes, 0.5);
    latencies.rare[limit] = quantile(socketTimes, 0.99);
    latencies.median[engine] = quantile(times, 0.5);
    latencies.rare[engine] = quantile(times, 0.99);
    return latencies;
}

namespace {

double engineBurst(const std::string& path, const std::vector<Entry>& entries) {
    const auto size = static_cast<std::uint32_t>(entries.size());
    Shared<Told> told;
    Mounted writer(path, QuilMemtab::writer, size);
    for (const Entry& entry : entries) writer.hosts->hostIs(valueOf(entry, 1).value());
    const std::uint64_t last = size + burstSize;
    const auto other = [&] {
        Listener listener;
        Mounted reader(path, QuilMemtab::reader, size, &listener);
        std::uint32_t calls = 0;
        listener.onChange = [&](const Key& key) {
            ++calls;
            L2Rib::HostAndSource record;
            reader.hosts->host(key, record);
            consume(Value(record));
        };
        const auto& table = reader.hosts->hostControl();
        while (calls < size) reader.loop.runOnce(1);  // it is told of all there is
        for (int i = 0; i < 10; ++i) reader.loop.runOnce(0);
        told->ready = true;
        while (table.sequence() < last) reader.loop.runOnce(1);
        reader.loop.runOnce(0);
        tell(*told);
    };
    double begin = 0;
    bool done = false;
    beside(other, [&] {
        writer.loop.runOnce(0);
        if (!told->ready || std::exchange(done, true)) return;
        begin = nanoseconds();
        for (std::uint32_t i = 0; i < burstSize; ++i) {
            writer.hosts->hostIs(valueOf(entries[i * 7919ull % size], i + 2).value());
            if (i % 256 == 0) writer.loop.runOnce(0);
        }
    });
    return (told->when - begin) / 1000;
}

double bareBurst(const std::string& path, const std::vector<Entry>& entries) {
    const auto size = static_cast<std::uint32_t>(entries.size());
    Shared<Told> told;
    BareTable table(path + "/bare", size);
    for (const Entry& entry : entries) table.write(entry, 1);
    const auto other = [&] {
        std::uint64_t sequence = size;
        told->ready = true;
        while (sequence < size + burstSize) sequence = table.follow(sequence, consume);
        tell(*told);
    };
    double begin = 0;
    bool done = false;
    beside(other, [&] {
        if (!told->ready || std::exchange(done, true)) return;
        begin = nanoseconds();
        for (std::uint32_t i = 0; i < burstSize; ++i) table.write(entries[i * 7919ull % size], i + 2);
    });
    return (told->when - begin) / 1000;
}

}  // namespace

Figures burst(const std::string& path, const std::vector<Entry>& entries) {
    std::array<std::function<double()>, contestants> runs;
    runs[bare] = [&] { return bareBurst(path, entries); };
    runs[engine] = [&] { return engineBurst(path, entries); };
    return medians(3, runs);
}

}  // namespace bench
