// What a follower tells when it goes over from one table to the next: whatever differs, and nothing else.
#include <fstream>
#include <functional>
#include <set>

#include "Memtab/Follower.h"
#include "TableFixture.h"

namespace {

using test::Item;
using test::NumberKey;
using Table = test::TestTable<test::HookedOps>;
using Told = std::set<std::uint32_t>;

// Follows a table of sixteen items, and knows them all.
struct Following {
    static Memtab::Options options() {
        auto o = test::sized(64, 4);
        o.shrinkSlots = true;
        return o;
    }
    Following() {
        for (std::uint32_t n = 0; n < 16; ++n) write(n, 1);
        follower.resynchronise(nullptr, reader, queue);
        deliver();
    }
    void write(std::uint32_t n, std::uint32_t generation) { table.writer->write(Item(n, generation), true); }
    // Cut off by the writer's end.
    void writeUntold(std::uint32_t n, std::uint32_t generation) { table.writer->write(Item(n, generation), false); }
    void remove(std::uint32_t n) { table.writer->remove(NumberKey{n}); }
    void collect() { follower.collect(reader, queue, 1000); }
    // The consumer is handed what the table holds; returns the slot and its state.
    std::pair<std::uint32_t, std::uint32_t> look(std::uint32_t n) {
        bool found = false;
        reader.lookup(NumberKey{n}, found);
        if (found) follower.saw(reader.lastSlot(), NumberKey{n});
        Item item;
        std::uint32_t state = 0;
        reader.safeValue(reader.lastSlot(), item, state);
        return {reader.lastSlot(), state};
    }
    Told deliver() {
        Told told;
        while (const auto key = follower.takeChanged()) told.insert(key->number);
        while (const auto key = follower.takeGone()) told.insert(key->number);
        return told;
    }
    // The same entries in files of their own, in another order; but one is another.
    void refill() {
        std::vector<Item> items;
        Item item;
        Table::Writer::IterHint hint;
        for (bool more = table.writer->first(item, hint); more; more = table.writer->next(item.key, item, hint)) {
            items.push_back(item);
        }
        table.writer->detach();
        table.writer->attach(table.directory, 0x1234);
        for (auto at = items.rbegin(); at != items.rend(); ++at) table.writer->write(*at, true);
        write(0, 5);
    }

    Table table{options()};
    Memtab::Follower<NumberKey, Item, test::HookedOps> follower;
    Table::Reader reader{table.reader()};
    Memtab::ConquerReader queue{table.queue()};
};

struct Case {
    const char* what;
    std::function<void(Following&)> happens;  // between the last turn and the writer's end
    Told told;
};

const Case cases[] = {
    {"nothing", [](Following&) {}, {}},
    {"every kind of change, not heard of",
     [](Following& f) {
         f.write(3, 2);
         f.remove(4);
         f.write(20, 1);
     },
     {3, 4, 20}},
    {"heard of, and not delivered",
     [](Following& f) {
         f.write(3, 2);
         f.remove(4);
         f.collect();
     },
     {3, 4}},
    {"heard of and delivered",
     [](Following& f) {
         f.write(3, 2);
         f.write(20, 1);
         f.collect();
         f.deliver();
     },
     {}},
    {"a change without its notification", [](Following& f) { f.writeUntold(3, 2); }, {3}},
    {"changed, handed out, and changed back",
     [](Following& f) {
         f.writeUntold(3, 2);
         f.look(3);
         f.writeUntold(3, 1);
     },
     {3}},
    {"come, handed out, and gone",
     [](Following& f) {
         f.write(20, 1);
         f.look(20);
         f.remove(20);
     },
     {20}},
    {"its place taken by another that was handed out",
     [](Following& f) {
         f.remove(3);
         f.write(20, 1);
         f.look(20);
     },
     {3, 20}},
    // Most slots go back to the system and come anew: to what they held, with the count of rewrites that they had.
    {"a table that shrank and grew",
     [](Following& f) {
         const auto before = f.look(12);
         for (const std::uint32_t generation : {2u, 1u}) {
             for (std::uint32_t n = 2; n < 16; ++n) f.remove(n);
             ASSERT_EQ(f.table.writer->capacity(), 8u);
             for (std::uint32_t n = 2; n < 16; ++n) f.write(n, generation);
             for (std::uint32_t n = 2; n < 16; ++n) f.look(n);
         }
         ASSERT_EQ(f.look(12), before);
     },
     {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}},
};

TEST(Follower, GoesOverToTheNextTableAndTellsWhatDiffers) {
    for (const bool isKept : {true, false}) {
        for (const Case& c : cases) {
            SCOPED_TRACE(testing::Message() << c.what << (isKept ? ", the table kept" : ", in a new incarnation"));
            Following f;
            c.happens(f);
            if (!isKept) f.refill();
            ASSERT_TRUE(f.table.restart());
            auto reader = f.table.reader();
            auto queue = f.table.queue();
            f.follower.resynchronise(&f.reader, reader, queue);
            Told told = c.told;
            if (!isKept) told.insert(0);
            EXPECT_EQ(f.deliver(), told);
            f.write(1, 9);
            f.follower.collect(reader, queue, 1000);
            EXPECT_EQ(f.deliver(), Told{1});
        }
    }
}

// What moves behind the back of the look, and goes before the next one, is told.
TEST(Follower, MissesNothingThatMovesMeanwhile) {
    Following f;
    f.remove(2);  // whose slot is free when it is looked at
    f.remove(5);
    f.write(20, 1);
    auto reader = f.table.reader();
    auto queue = f.table.queue();
    NumberKey::atHash = [&] {  // with the search for 20, in the slot of 5
        f.remove(10);
        f.write(21, 1);
        f.write(10, 1);
    };
    f.follower.resynchronise(&f.reader, reader, queue);
    ASSERT_FALSE(NumberKey::atHash);
    f.remove(10);
    f.follower.collect(reader, queue, 1000);
    EXPECT_EQ(f.deliver(), (Told{2, 5, 10, 20, 21}));
}

// Without a table to compare with, or with one that is damaged, everything of both is told.
TEST(Follower, TellsEverythingWhereNothingIsKnown) {
    unsigned everything = 0;
    for (int damaged = -1; damaged < 16; ++damaged) {
        Following f;
        std::fstream buckets(f.table.file("buckets"), std::ios::in | std::ios::out | std::ios::binary);
        f.remove(3);
        f.refill();
        // The link of a bucket, in the files that only this reader has still mapped.
        if (damaged >= 0) buckets.seekp(64 + 8 * damaged + 4).write("\x00\x00\xff\x00", 4).flush();
        auto reader = f.table.reader();
        auto queue = f.table.queue();
        f.follower.resynchronise(damaged >= 0 ? &f.reader : nullptr, reader, queue);
        const Told told = f.deliver();
        everything += told.size() == 16;
        EXPECT_TRUE(told.size() == 16 || (damaged >= 0 && told == Told{0, 3})) << damaged;  // in that bucket is nothing
    }
    EXPECT_GT(everything, 4u);
}

}  // namespace
