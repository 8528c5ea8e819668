// The writer against the simplest container, its growth, its queue, and what it leaves when it fails.
#include <filesystem>
#include <fstream>
#include <map>
#include <random>

#include "Mem/KickSocket.h"
#include "Memtab/TableFixture.h"

namespace {

using namespace test;

TEST(MemtabWriter, GrowsToTheMaximumAndPassesItByATenth) {
    TestTable<GoodOps> table(sized(1000));
    std::vector<std::uint32_t> sizes;
    for (std::uint32_t n = 0; n < 1110; ++n) {
        table.writer->write(Item(n, 1), true);
        if (sizes.empty() || sizes.back() != table.writer->capacity()) sizes.push_back(table.writer->capacity());
    }
    EXPECT_EQ(sizes, (std::vector<std::uint32_t>{250, 500, 1000, 1101, 1212}));
    EXPECT_EQ(table.writer->numBuckets(), 2048u);
    EXPECT_EQ(table.writer->members(), 1110u);
}

TEST(MemtabWriter, OfFixedCapacityIsFullWithNothingChanged) {
    Memtab::Options options = sized(4);
    options.fixedCapacity = true;
    TestTable<GoodOps> table(options);
    for (std::uint32_t n = 0; n < 4; ++n) table.writer->write(Item(n, 1), true);
    try {
        table.writer->write(Item(9, 1), true);
        FAIL();
    } catch (const Memtab::TableFullException& error) {
        EXPECT_STREQ(error.what(), "SlotWriter::alloc() Memtab table full (occupancy:4 tableSize:4) test");
    }
    EXPECT_EQ(table.writer->sequence(), 4u);
    table.writer->write(Item(2, 2), true);  // a rewrite needs no slot
    Item found;
    EXPECT_TRUE(table.writer->lookup(NumberKey{2}, found));
    EXPECT_EQ(found.generation, 2u);
}

// Fails one file operation of the writer.
struct Failing : Mem::Observer {
    int countdown;
    explicit Failing(int n) : countdown(n) { Mem::observer = this; }
    ~Failing() override { Mem::observer = nullptr; }
    int onFile(const char*, const char*) override { return countdown-- == 0 ? ENOSPC : 0; }
};

TEST(MemtabWriter, AFailingFileOperationLeavesAnExactTable) {
    int failures = 0;
    for (int n = 0; n < 40; ++n) {
        TestTable<GoodOps> table(sized(64, 4));
        std::map<std::uint32_t, std::uint32_t> model;
        {
            Failing failing(n);
            for (std::uint32_t i = 0; i < 60; ++i) {
                try {
                    table.writer->write(Item(i, 1), true);
                    model[i] = 1;
                } catch (const Quil::MemoryResourceException& error) {
                    EXPECT_NE(std::string(error.what()).find("Reason: "), std::string::npos);
                    ++failures;
                }
            }
        }
        EXPECT_EQ(table.writer->members(), model.size());
        EXPECT_EQ(table.writer->sequence(), model.size());
        auto reader = table.reader();
        for (std::uint32_t i = 0; i < 60; ++i) {
            bool found = false;
            reader.lookup(NumberKey{i}, found);
            EXPECT_EQ(found, model.contains(i)) << i;
        }
    }
    EXPECT_GT(failures, 3);
}

// Random operations on writer and model; reader and follower compared every few steps.
template <class OpsType>
void agreesWithStdMap(unsigned steps, std::uint32_t keys) {
    const unsigned s = seed();
    SCOPED_TRACE(seedNote(s));
    std::mt19937 random(s);
    Memtab::Options options = sized(64, 4);
    options.shrinkSlots = options.shrinkBuckets = true;
    TestTable<OpsType> table(options);
    auto reader = table.reader();
    auto queue = table.queue();
    table.connect();
    std::map<std::uint32_t, std::uint32_t> model;
    std::map<std::uint32_t, Item> bySlot;  // what a follower of slots knows
    std::vector<std::uint32_t> slots;
    const auto follow = [&] {
        Item item;
        for (bool more = true; more;) {
            slots.clear();
            more = queue.poll(slots, 5);
            for (const std::uint32_t slot : slots) {
                if (reader.safeValue(slot, item)) {
                    bySlot[slot] = item;
                } else {
                    bySlot.erase(slot);
                }
            }
        }
        table.acknowledge(reader, queue);
    };
    std::uint64_t shrinks = 0, compactions = 0;
    std::uint32_t leastBuckets = ~0u, mostBuckets = 0;
    for (unsigned step = 1; step <= steps; ++step) {
        const std::uint32_t n = random() % keys;
        const bool isFilling = step / (2 * keys) % 2 == 0;  // fills up and empties again, so that the table breathes
        const bool isRemoval = random() % 16 < (isFilling ? 4 : 15);
        if (isRemoval) {
            Item removed;
            ASSERT_EQ(table.writer->remove(NumberKey{n}, &removed), model.contains(n));
            if (model.contains(n)) {
                ASSERT_EQ(removed.generation, model[n]);
            }
            model.erase(n);
        } else if (random() % 3 == 0) {
            Item* direct =
                random() % 2 ? table.writer->directWrite(NumberKey{n}) : table.writer->directUpdate(NumberKey{n});
            if (!direct) {
                ASSERT_FALSE(model.contains(n));
            } else {
                ASSERT_EQ(direct->generation, model.contains(n) ? model[n] : 0);
                *direct = Item(n, step);
                ASSERT_EQ(table.writer->directCommit().generation, step);
                model[n] = step;
            }
        } else {
            ASSERT_EQ(table.writer->write(Item(n, step), true).generation, step);
            model[n] = step;
        }
        if (random() % 16 == 0) follow();
        if (random() % 200 == 0) {
            shrinks += table.writer->writerCounters().shrinks;
            compactions += table.writer->conquer().counters().compactions;
            const std::uint64_t before = table.writer->sequence();
            follow();  // a writer's end makes readers compare the whole table
            ASSERT_TRUE(table.restart()) << step;
            ASSERT_EQ(table.writer->sequence(), before);
            table.connect();
        }
        leastBuckets = std::min(leastBuckets, table.writer->numBuckets());
        mostBuckets = std::max(mostBuckets, table.writer->numBuckets());
        if (step % 11 == 0) {
            ASSERT_EQ(table.fault(), "") << step;
        }
        if (step % 37 != 0) continue;
        ASSERT_EQ(table.writer->members(), model.size());
        // The whole table, by the writer's walk and by the reader's: the same, in ascending (rhash, key) order.
        std::map<std::pair<std::uint32_t, std::uint32_t>, std::uint32_t> walked, expected;
        for (const auto& [key, generation] : model) {
            expected[{Verro::Util::reverse(OpsType::hash(NumberKey{key})), key}] = generation;
        }
        Item item;
        typename TestTable<OpsType>::Reader::IterHint hint;
        auto at = expected.begin();
        for (bool more = reader.first(item, hint); more; more = reader.next(item.key, item, hint), ++at) {
            ASSERT_NE(at, expected.end());
            ASSERT_TRUE(item.isWhole());
            ASSERT_EQ(item.key.number, at->first.second);
            ASSERT_EQ(item.generation, at->second);
        }
        ASSERT_EQ(at, expected.end());
        Memtab::WriterIterHint own;
        for (bool more = table.writer->first(item, own); more; more = table.writer->next(item.key, item, own)) {
            walked[{Verro::Util::reverse(OpsType::hash(item.key)), item.key.number}] = item.generation;
        }
        ASSERT_EQ(walked, expected);
        // "Next after a key" works for a key that is not there.
        const NumberKey any{static_cast<std::uint32_t>(random() % keys)};
        const auto next = expected.upper_bound({Verro::Util::reverse(OpsType::hash(any)), any.number});
        hint = {};
        ASSERT_EQ(reader.next(any, item, hint), next != expected.end());
        if (next != expected.end()) {
            ASSERT_EQ(item.key.number, next->first.second);
        }
        // Following the queue, in portions, gives the same table.
        follow();
        ASSERT_EQ(queue.sequence(), table.writer->sequence());
        std::map<std::uint32_t, std::uint32_t> followed;
        for (const auto& [slot, known] : bySlot) followed[known.key.number] = known.generation;
        ASSERT_EQ(followed, model);
    }
    EXPECT_GT(compactions + table.writer->conquer().counters().compactions, 0u);
    EXPECT_GT(shrinks + table.writer->writerCounters().shrinks, 0u);
    EXPECT_GE(mostBuckets, 4 * leastBuckets);
}

TEST(MemtabWriterModel, AgreesWithStdMapWithAGoodHash) { agreesWithStdMap<GoodOps>(scaled(20000), 300); }
TEST(MemtabWriterModel, AgreesWithStdMapWithTheIdentityHash) { agreesWithStdMap<IdentityOps>(scaled(20000), 300); }
TEST(MemtabWriterModel, AgreesWithStdMapWithAllKeysInOneBucket) { agreesWithStdMap<ConstantOps>(scaled(5000), 100); }

TEST(ConquerWriter, KeepsOneLiveRecordASlotAndDropsTombstonesNobodyNeeds) {
    TestTable<GoodOps> table(sized(16));
    auto queue = table.queue();
    for (std::uint32_t g = 1; g <= 1000; ++g) table.writer->write(Item(1, g), true);
    table.writer->write(Item(2, 1), true);
    std::vector<std::uint32_t> slots;
    EXPECT_FALSE(queue.poll(slots, 100));
    EXPECT_EQ(slots, (std::vector<std::uint32_t>{0, 1}));
    EXPECT_EQ(queue.sequence(), 1001u);
    EXPECT_EQ(table.writer->conquer().capacity(), 64u);
}

TEST(ConquerWriter, WithoutPruningKeepsEveryTombstone) {
    Memtab::Options options = sized(16);
    options.pruneConquer = false;
    TestTable<GoodOps> table(options);
    for (std::uint32_t g = 1; g <= 1000; ++g) table.writer->write(Item(1, g), true);
    EXPECT_EQ(table.writer->conquer().capacity(), 1024u);  // of which 1000 are taken
}

TEST(ConquerWriter, DropsTheSlowestReaderAtItsCap) {
    Memtab::Options options = sized(16);
    options.maxNotifications = 256;
    TestTable<GoodOps> table(options);
    table.connect();
    for (std::uint32_t g = 1; g <= 200; ++g) table.writer->write(Item(1, g), true);
    EXPECT_FALSE(table.writer->quiesced());
    EXPECT_EQ(table.writer->conquer().capacity(), 256u);
    EXPECT_EQ(table.kickSm->numReaders(), 1u);
    for (std::uint32_t g = 201; g <= 1000; ++g) table.writer->write(Item(1, g), true);
    EXPECT_EQ(table.kickSm->numReaders(), 0u);
    EXPECT_EQ(table.writer->conquer().counters().droppedReaders, 1u);
    EXPECT_LE(table.writer->conquer().capacity(), 256u);
    EXPECT_TRUE(table.writer->quiesced());  // nobody is behind
    EXPECT_TRUE(table.kickSm->hasOutcasts());
    EXPECT_EQ(table.fault(), "");
}

TEST(ConquerWriter, WithoutPruningRefusesChangesAtItsCap) {
    Memtab::Options options = sized(16);
    options.pruneConquer = false;
    options.maxNotifications = 64;
    TestTable<GoodOps> table(options);
    for (std::uint32_t g = 1; g <= 64; ++g) table.writer->write(Item(1, g), true);
    EXPECT_THROW(table.writer->write(Item(2, 1), true), Quil::MemoryResourceException);
    EXPECT_EQ(table.writer->members(), 1u);
    EXPECT_EQ(table.fault(), "");
}

TEST(ConquerWriter, KeepsEverythingUntilTheExpectedReadersHaveCome) {
    Memtab::Options options = sized(16);
    options.waitForReaders = true;
    options.expectedReaders = 1;
    TestTable<GoodOps> table(options);
    for (std::uint32_t g = 1; g <= 100; ++g) table.writer->write(Item(1, g), true);
    EXPECT_EQ(table.writer->conquer().prune(), 0u);
    auto reader = table.reader();
    auto queue = table.queue();
    queue.skipToEnd();
    table.connect();
    EXPECT_FALSE(table.writer->clientQuiesced("reader"));
    table.acknowledge(reader, queue);
    EXPECT_EQ(table.writer->conquer().prune(), 100u);
    EXPECT_TRUE(table.writer->quiesced());
    EXPECT_TRUE(table.writer->clientQuiesced("reader"));
    EXPECT_FALSE(table.writer->clientQuiesced("another"));
}

// The moves of a shrink are one batch, and a reader that has not passed them holds off the next shrink.
TEST(Shrink, IsTakenWholeAndAwaitsItsReaders) {
    Memtab::Options options = sized(1024, 1024);
    options.initialSlots = 16;
    options.shrinkSlots = true;
    TestTable<GoodOps> table(options);
    table.connect();
    auto reader = table.reader();
    auto queue = table.queue();
    for (std::uint32_t n = 0; n < 1024; ++n) table.writer->write(Item(n, 1), true);
    EXPECT_EQ(table.writer->capacity(), 1024u);
    queue.skipToEnd();
    const auto fileSize = std::filesystem::file_size(table.file("slots"));
    std::uint32_t n = 0;
    for (; table.writer->members() > 256; ++n) table.writer->remove(NumberKey{n});
    EXPECT_EQ(table.writer->capacity(), 1024u);
    table.writer->remove(NumberKey{n++});
    EXPECT_EQ(table.writer->capacity(), 512u);  // 255 entries: 4 times 128
    EXPECT_TRUE(table.writer->conquer().hasCorral());
    EXPECT_EQ(std::filesystem::file_size(table.file("slots")), fileSize);  // the reader has it mapped
    for (; table.writer->members() > 60; ++n) table.writer->remove(NumberKey{n});
    EXPECT_EQ(table.writer->capacity(), 512u);
    EXPECT_EQ(table.fault(), "");

    std::vector<std::uint32_t> slots;
    while (queue.poll(slots, 700)) {
    }
    EXPECT_GT(slots.size(), 769u + 2);  // removals and moves
    for (std::uint32_t key = n; key < 1024; ++key) {
        bool found = false;
        EXPECT_EQ(reader.lookup(NumberKey{key}, found).generation, 1u);
    }
    EXPECT_EQ(reader.numSlots(), 512u);
    table.acknowledge(reader, queue);
    EXPECT_FALSE(table.writer->conquer().hasCorral());
    EXPECT_LT(std::filesystem::file_size(table.file("slots")), fileSize);
    table.writer->remove(NumberKey{n});
    EXPECT_EQ(table.writer->capacity(), 128u);
    EXPECT_EQ(table.fault(), "");
}

// Who is connected and has not said who it is may have mapped the files, and seen an entry where it lay before.
TEST(Shrink, IsRememberedForAReaderThatIsNotYetCounted) {
    Memtab::Options options = sized(1024, 16);
    options.shrinkSlots = true;
    TestTable<GoodOps> table(options);
    for (std::uint32_t n = 0; n < 1024; ++n) table.writer->write(Item(n, 1), true);
    table.kickSm = std::make_unique<Mem::WriterKickSm>(table.loop, table.scratch.path(), true, *table.writer);
    table.writer->kickSmIs(table.kickSm.get());
    auto silent = std::make_optional(Mem::KickSocket::connect(table.scratch.path()));
    for (std::uint32_t n = 0; n < 900; ++n) table.writer->remove(NumberKey{n});
    EXPECT_EQ(table.writer->writerCounters().shrinks, 1u);
    EXPECT_TRUE(table.writer->conquer().hasCorral());
    EXPECT_FALSE(table.writer->quiesced());
    silent.reset();
    ASSERT_TRUE(turnUntil(table.loop, [&] { return !table.writer->conquer().hasCorral(); }));
    EXPECT_TRUE(table.writer->quiesced());
    table.writer->remove(NumberKey{900});
    EXPECT_EQ(table.writer->writerCounters().shrinks, 2u);
    EXPECT_EQ(table.fault(), "");
}

// A shrink lowers the queue's cap, but never below what the queue has.
TEST(Shrink, LeavesTheQueueItsCapacity) {
    Memtab::Options options = sized(1024, 16);
    options.shrinkSlots = true;
    TestTable<GoodOps> table(options);
    for (std::uint32_t n = 0; n < 1024; ++n) table.writer->write(Item(n, 1), true);
    for (std::uint32_t n = 0; n < 897; ++n) table.writer->remove(NumberKey{n});
    for (std::uint32_t g = 2; g < 50; ++g) {
        for (std::uint32_t n = 897; n < 1024; ++n) table.writer->write(Item(n, g), true);
    }
    EXPECT_EQ(table.fault(), "");
}

TEST(WarmStart, RefusesAQueueWithoutRoom) {
    TestTable<GoodOps> table(sized(16));
    for (const char* name : {"conquer.1", "conquer.2"}) {
        std::fstream(table.file(name), std::ios::in | std::ios::out | std::ios::binary)
            .seekp(56)
            .write("\0\0\0\0\0\0\0", 8);
    }
    EXPECT_FALSE(table.restart());
    table.writer->attach(table.directory, 0x1234);
    table.writer->write(Item(1, 1), true);
}

TEST(DirectMode, RefusesWhatIsNotPaired) {
    TestTable<GoodOps> table(sized(16));
    const auto misuse = [&](const auto& run) -> std::string {
        try {
            run();
        } catch (const Quil::AssertionException& error) {
            return error.what();
        }
        return "";
    };
    const std::string advice = " - Make sure the DirectIs/Commit are properly paired!";
    EXPECT_EQ(table.writer->directUpdate(NumberKey{5}), nullptr);
    table.writer->write(Item(5, 1), true);
    *table.writer->directUpdate(NumberKey{5}) = Item(5, 2);
    EXPECT_EQ(misuse([&] { table.writer->write(Item(6, 1), true); }),
              "MemtabWriter::write() unbalanced directSlot:0 containing value:5/2 when writing value:6" + advice);
    EXPECT_EQ(misuse([&] { table.writer->remove(NumberKey{6}); }),
              "MemtabWriter::remove() unbalanced directSlot:0 containing value:5/2 when removing key:6" + advice);
    EXPECT_NE(misuse([&] { table.writer->directWrite(NumberKey{6}); }), "");
    EXPECT_EQ(table.writer->sequence(), 1u);  // nothing was seen yet
    EXPECT_EQ(table.writer->directCommit().generation, 2u);
    EXPECT_EQ(table.writer->sequence(), 2u);
    EXPECT_NE(misuse([&] { table.writer->directCommit(); }), "");
    table.writer->directWrite(NumberKey{7})->key.number = 8;
    EXPECT_NE(misuse([&] { table.writer->directCommit(); }), "");
}

}  // namespace
