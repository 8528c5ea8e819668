// The writer against the simplest container, its growth, its queue, and what it leaves when it fails.
#include <map>
#include <random>

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
    EXPECT_GT(compactions, 5u);
    EXPECT_GT(shrinks, 5u);
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

}  // namespace
