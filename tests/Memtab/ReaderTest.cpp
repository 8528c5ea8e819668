// The reader beside a writer at work: between every two of its stores, on threads, and over damaged files.
#include <atomic>
#include <fstream>
#include <map>
#include <random>
#include <thread>

#include "Memtab/TableFixture.h"

namespace {

using namespace test;

// Calls back before every store of the writer.
struct BeforeEveryStore : Mem::Observer {
    std::function<void()> look;
    std::uint64_t stores = 0;
    bool looking = false;
    explicit BeforeEveryStore(std::function<void()> f) : look(std::move(f)) { Mem::observer = this; }
    ~BeforeEveryStore() override { Mem::observer = nullptr; }
    void onStore(const void*, std::size_t) override {
        ++stores;
        look();
    }
};

// At every state that the writer's memory passes through, a reader that was there all along and one that has just come
// see every entry that no operation touches, and the touched one as it was or as it will be.
template <class OpsType>
void isExactBetweenAnyTwoStores() {
    Memtab::Options options = sized(64, 4);
    options.shrinkSlots = options.shrinkBuckets = true;
    TestTable<OpsType> table(options);
    table.connect();  // a reader that never says what it has mapped: no file gets shorter under those that look
    constexpr std::uint32_t keys = 24;
    std::map<std::uint32_t, std::uint32_t> model;
    std::uint32_t touched = 0, before = 0, after = 0;  // generations of the key under way; 0: absent
    auto old = table.reader();
    std::uint64_t looks = 0;
    const auto check = [&](auto& reader) {
        for (std::uint32_t n = 0; n < keys; ++n) {
            bool found = false;
            const Item item = reader.lookup(NumberKey{n}, found);
            const std::uint32_t generation = found ? item.generation : 0;
            ASSERT_TRUE(!found || (item.isWhole() && item.key.number == n));
            if (n == touched) {
                ASSERT_TRUE(generation == before || generation == after) << "key " << n << " generation " << generation;
            } else {
                ASSERT_EQ(generation, model.contains(n) ? model[n] : 0) << "key " << n << " while " << touched;
            }
        }
        std::size_t walked = 0;
        Item item;
        typename TestTable<OpsType>::Reader::IterHint hint;
        for (bool more = reader.first(item, hint); more; more = reader.next(item.key, item, hint)) {
            ASSERT_TRUE(item.isWhole());
            walked += item.key.number != touched;
        }
        ASSERT_EQ(walked, model.size() - model.count(touched));
        ++looks;
    };
    BeforeEveryStore observer([&] {
        check(old);
        if (looks % 16 == 0) {
            auto fresh = table.reader();
            check(fresh);
        }
    });
    const auto run = [&](std::uint32_t n, std::uint32_t generation) {
        touched = n;
        before = model.contains(n) ? model[n] : 0;
        after = generation;
        if (generation == 0) {
            table.writer->remove(NumberKey{n});
            model.erase(n);
        } else {
            table.writer->write(Item(n, generation), true);
            model[n] = generation;
        }
    };
    // Insertions with growth and doubling, rewrites, removals and reuse, enough changes for compactions, and at last a
    // shrink that moves entries, halving, and growth into what the shrink left.
    for (std::uint32_t n = 0; n < keys; ++n) run(n, 1);
    for (std::uint32_t g = 2; g < 5; ++g) {
        for (std::uint32_t n = 0; n < keys; n += 3) run(n, 0);
        for (std::uint32_t n = 0; n < keys; n += 2) run(n, g);
    }
    for (std::uint32_t n = 0; n < keys - 4; ++n) run(n, 0);
    EXPECT_EQ(table.writer->writerCounters().shrinks, 1u);
    for (std::uint32_t n = 0; n < keys; ++n) run(n, 9);
    EXPECT_GT(table.writer->conquer().counters().compactions, 0u);
    EXPECT_GT(observer.stores, 1000u);
    std::cout << "  " << observer.stores << " stores, " << looks << " looks\n";
}
TEST(MemtabReader, IsExactBetweenAnyTwoStores) { isExactBetweenAnyTwoStores<GoodOps>(); }
TEST(MemtabReader, IsExactBetweenAnyTwoStoresOfOneChain) { isExactBetweenAnyTwoStores<ConstantOps>(); }

// One mapping, several threads: what the thread sanitizer can see. Memory that never moves is shared by all.
TEST(MemtabReader, ThreadsOverOneMappingSeeWholeRecords) {
    if (!test::hasThreads) GTEST_SKIP() << "no threads under the emulator";
    Quil::Trace& debug = Quil::Trace::handler("threads");
    Item defaultItem;
    const Memtab::SlotTable::Format stored{"test::Item", "test::Table", sizeof(Item), &defaultItem};
    Mem::LocalDirectory directory("threads", 16 << 20);
    using Table = TestTable<GoodOps>;
    Table::Writer writer(debug, "threads", sized(256, 16), stored);
    writer.attach(directory, 1);
    constexpr std::uint32_t stable = 50, all = 400;
    for (std::uint32_t n = 0; n < stable; ++n) writer.write(Item(n, 1), true);

    std::atomic<bool> stop{false};
    std::atomic<std::uint64_t> looks{0};
    std::vector<std::unique_ptr<Table::Reader>> readers;
    Memtab::ConquerReader queue;
    Quil::String reason;
    for (int t = 0; t < 2; ++t) {
        readers.push_back(std::make_unique<Table::Reader>(debug));
        ASSERT_TRUE(readers.back()->attach(directory, 1, stored, reason)) << reason;
    }
    ASSERT_TRUE(queue.attach(debug, directory, 1, reason)) << reason;
    std::vector<std::thread> threads;
    threads.emplace_back([&, reader = readers[0].get()] {
        for (std::mt19937 random(1); !stop; ++looks) {
            const std::uint32_t n = random() % all;
            bool found = false;
            const Item& item = reader->lookup(NumberKey{n}, found);
            if (!found ? n < stable : !item.isWhole() || item.key.number != n) std::abort();
        }
    });
    threads.emplace_back([&, reader = readers[1].get()] {
        std::vector<std::uint32_t> slots;
        for (Item item; !stop; ++looks) {
            std::uint32_t seen = 0;
            Table::Reader::IterHint hint;
            for (bool more = reader->first(item, hint); more; more = reader->next(item.key, item, hint)) {
                if (!item.isWhole()) std::abort();
                seen += item.key.number < stable;
            }
            if (seen != stable) std::abort();
            slots.clear();
            queue.poll(slots, 100);
            for (const std::uint32_t slot : slots) {
                if (reader->safeValue(slot, item) && !item.isWhole()) std::abort();
            }
        }
    });
    std::mt19937 random(3);
    for (std::uint32_t step = 2; step < scaled(60000) || looks < 100; ++step) {
        const std::uint32_t n = random() % all;
        if (n >= stable && random() % 2) {
            writer.remove(NumberKey{n});
        } else {
            writer.write(Item(n, step), true);
        }
    }
    stop = true;
    for (auto& thread : threads) thread.join();
    EXPECT_GT(writer.capacity(), 256u);
}

#if defined(__SANITIZE_THREAD__)
// The sanitizer is awake: a plain store to a shared word is reported.
TEST(ThreadSanitizerDeathTest, APlantedPlainStoreIsReported) {
    const auto race = [] {
        alignas(8) static Mem::Word64 word{0};
        std::thread reader([] {
            for (int i = 0; i < 100000; ++i) (void)Mem::Atomics::load64(word);
        });
        for (int i = 0; i < 100000; ++i) word.raw = static_cast<std::uint64_t>(i);
        reader.join();
        std::_Exit(1);
    };
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(race(), "data race");
}
#endif

// Whatever the files hold, a reader answers or reports corruption: it neither crashes nor hangs.
TEST(MemtabReader, SurvivesDamageOfEveryBit) {
    TestTable<GoodOps> table(sized(16, 4));
    for (std::uint32_t n = 0; n < 12; ++n) table.writer->write(Item(n, 1), true);
    table.writer->remove(NumberKey{3});
    unsigned tried = 0, sound = 0, refused = 0, corrupt = 0, answered = 0;
    const auto use = [&] {
        ++tried;
        Quil::String reason;
        sound += Memtab::Validator(table.debug, "test").validate(table.directory, 0x1234, &table.stored, reason);
        try {
            auto reader = table.reader();
            auto queue = table.queue();
            Item item;
            bool found;
            for (std::uint32_t n = 0; n < 16; ++n) reader.lookup(NumberKey{n}, found);
            TestTable<GoodOps>::Reader::IterHint hint;
            unsigned steps = 0;
            for (bool more = reader.first(item, hint); more && ++steps < 1000;)
                more = reader.next(item.key, item, hint);
            EXPECT_LT(steps, 1000u) << "the walk goes round";
            std::vector<std::uint32_t> slots;
            queue.skipToEnd();
            auto again = table.queue();
            again.poll(slots, 1000);
            for (const std::uint32_t slot : slots) reader.safeValue(slot, item);
            ++answered;
        } catch (const Verro::CorruptionDetectedException&) {
            ++corrupt;
        } catch (const std::runtime_error&) {
            ++refused;
        }
    };
    for (const char* name : {"slots", "buckets", "conquer.1", "conquer.2"}) {
        std::fstream file(table.file(name), std::ios::in | std::ios::out | std::ios::binary);
        std::string bytes{std::istreambuf_iterator<char>(file), {}};
        file.clear();
        const std::size_t end = std::min<std::size_t>(bytes.size(), 1200);
        const std::size_t step = scale() < 1 ? 7 : 1;
        for (std::size_t bit = 0; bit < end * 8; bit += step) {
            const auto write = [&](char byte) {
                file.seekp(static_cast<std::streamoff>(bit / 8));
                file.put(byte);
                file.flush();
            };
            write(static_cast<char>(bytes[bit / 8] ^ (1 << bit % 8)));
            use();
            write(bytes[bit / 8]);
        }
        for (std::size_t size = 0; size < bytes.size(); size += step) {
            std::ofstream(table.file(name), std::ios::binary) << bytes.substr(0, size);
            use();
        }
        std::ofstream(table.file(name), std::ios::binary) << bytes;
    }
    use();
    EXPECT_GT(answered, 1u);
    EXPECT_GT(sound, 1u);
    EXPECT_LT(sound, answered);
    EXPECT_GT(refused, 100u);
    EXPECT_GT(corrupt, 10u);
    std::cout << "  " << tried << " images: " << answered << " answered, " << corrupt << " corrupt, " << refused
              << " refused; " << sound << " sound\n";
}

TEST(MemtabReader, ALoopOfLinksEndsWithTheCycleMessage) {
    TestTable<ConstantOps> table(sized(4, 4));
    for (std::uint32_t n = 0; n < 4; ++n) table.writer->write(Item(n, 1), true);
    std::fstream file(table.file("slots"), std::ios::in | std::ios::out | std::ios::binary);
    const std::uint32_t self = 3;
    file.seekp(232 + 3 * 40 + 4);
    file.write(reinterpret_cast<const char*>(&self), 4);
    file.close();
    auto reader = table.reader();
    bool found;
    try {
        reader.lookup(NumberKey{9}, found);
        FAIL();
    } catch (const Verro::CorruptionDetectedException& error) {
        EXPECT_STREQ(error.what(), "MemtabReader::doLookup() hash chain cycle detected, slotCount:5 capacity:4");
    }
}

TEST(MemtabReader, AnAbsentKeyGivesTheDefaultRecord) {
    TestTable<GoodOps> table(sized(16));
    auto reader = table.reader();
    bool found = true;
    Item buffer(5, 5);
    EXPECT_EQ(reader.lookup(NumberKey{1}, found, &buffer).generation, 0u);
    EXPECT_FALSE(found);
    EXPECT_EQ(buffer.key.number, 0u);
}

}  // namespace
