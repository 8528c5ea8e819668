// The files, byte by byte, and what every validation says of a damaged one.
#include <fstream>
#include <map>

#include "L2Rib/L2Rib.h"
#include "Memtab/TableFixture.h"

namespace {

using namespace test;

std::string bytesOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}
std::uint32_t u32(const std::string& bytes, std::size_t at) {
    std::uint32_t value;
    std::memcpy(&value, bytes.data() + at, 4);
    return value;
}

TEST(Files, HaveTheDocumentedBytes) {
    TestTable<IdentityOps> table(sized(16));
    table.writer->write(Item(5, 1), true);
    const std::string slots = bytesOf(table.file("slots"));
    ASSERT_EQ(slots.size(), 192u + 40 + 4 * 40);
    EXPECT_EQ(slots.substr(0, 8), "MEMTBSLT");
    EXPECT_STREQ(slots.c_str() + 20, "test::Item");
    EXPECT_STREQ(slots.c_str() + 84, "test::Table");
    const std::map<std::size_t, std::uint32_t> header = {{8, 12},   {12, 0x1234}, {16, 1},  {148, 20},
                                                         {152, 40}, {156, 16},    {160, 2}, {168, 1},
                                                         {172, 1},  {176, 4},     {184, 0}, {188, 4}};
    for (const auto& [at, value] : header) EXPECT_EQ(u32(slots, at), value) << "at " << at;
    // Slot 0 holds the entry: rhash of 5 with its bits reversed, at the end of the chain of bucket 1 (5 modulo 4).
    EXPECT_EQ(u32(slots, 232 + 4) & 0x80000000u, 0x80000000u);
    EXPECT_EQ(u32(slots, 232 + 8), 5u);  // OCCUPIED and one rewrite
    EXPECT_EQ(u32(slots, 232 + 12), 0xA0000000u);
    EXPECT_EQ(u32(slots, 232 + 16), 5u);
    EXPECT_EQ(u32(slots, 272 + 4), 2u);  // the free list goes on from slot 1

    const std::string buckets = bytesOf(table.file("buckets"));
    ASSERT_EQ(buckets.size(), 64u + 4 * 8);
    EXPECT_EQ(buckets.substr(0, 8), "MEMTBBKT");
    EXPECT_EQ(u32(buckets, 28), 4u);
    // The walk goes 0, 2, 1, 3.
    const std::uint32_t links[] = {0x80000002u, 0u, 0x80000001u, 0xFFFFFFFFu};
    for (int b = 0; b < 4; ++b) EXPECT_EQ(u32(buckets, 64 + 8 * static_cast<std::size_t>(b) + 4), links[b]) << b;
    EXPECT_EQ(u32(slots, 232 + 4), 0x80000003u);  // what bucket 1 named before

    const std::string conquer = bytesOf(table.file("conquer.1"));
    ASSERT_EQ(conquer.size(), 72u + 64 * 12);
    EXPECT_EQ(conquer.substr(0, 8), "MEMTBCQR");
    EXPECT_EQ(u32(conquer, 8), 7u);
    EXPECT_EQ(u32(conquer, 60), 64u);
    EXPECT_EQ(u32(conquer, 64), 1u);
    EXPECT_EQ(u32(conquer, 68), 1u);  // sequence 1, slot 0
    EXPECT_EQ(u32(conquer, 76), 0u);
}

TEST(Files, RecordsHaveTheSizesOfEveryBuild) {
    const auto sizes = [](std::uint32_t value) {
        Memtab::SlotTable::Format format;
        format.valueSize = value;
        return std::pair(format.slotSize(), format.headerSize());
    };
    EXPECT_EQ(sizes(sizeof(L2Rib::Host)), (std::pair<std::uint32_t, std::uint64_t>(120, 312)));
    EXPECT_EQ(sizes(sizeof(L2Rib::HostAndSource)), (std::pair<std::uint32_t, std::uint64_t>(136, 328)));
    EXPECT_EQ(sizes(sizeof(L2Rib::Dest)).first, 40u);
    EXPECT_EQ(sizes(sizeof(L2Rib::DestAndSource)).first, 64u);
    EXPECT_EQ(sizes(sizeof(L2Rib::LoadBalance)).first, 224u);
    EXPECT_EQ(sizes(sizeof(L2Rib::LoadBalanceAndSource)).first, 248u);
}

// One row for each check: the bytes to change, and what is said. The rows are in the order of the checks.
struct Damage {
    std::size_t at;
    std::uint32_t value;
    std::string message;
};

template <class Header>
std::string verdict(std::string bytes, std::size_t at, std::uint32_t value, std::size_t size,
                    std::uint32_t wantedFenix) {
    std::memcpy(bytes.data() + at, &value, 4);
    alignas(8) static char memory[4096];
    std::memcpy(memory, bytes.data(), bytes.size());
    Quil::String reason;
    const bool good =
        reinterpret_cast<const Header*>(memory)->validate(Quil::Trace::handler("test"), size, wantedFenix, reason);
    EXPECT_EQ(good, reason.empty());
    return reason;
}

TEST(SlotTableValidate, StopsAtTheFirstFaultAndNamesIt) {
    TestTable<GoodOps> table(sized(16));
    const std::string good = bytesOf(table.file("slots"));
    const auto check = [&](std::size_t at, std::uint32_t value, std::size_t size, std::uint32_t fenix = 0x1234) {
        return verdict<Memtab::SlotTable::Header>(good, at, value, size, fenix);
    };
    const std::string h = "SlotTable::Header::validate() ";
    const Damage cases[] = {
        {0, 0x4d454d54, h + "bad magic: 544c53424d454d54"},
        {8, 11, h + "bad version: 11"},
        {12, 0xabc, "SlotTable::validate() bad fenix:abc wanted:1234"},
        {16, 9, h + "bad platform specification: unknown (9) expecting: little-endian"},
        {168, 5, h + "bad occupiedSlots: 5 num slots: 4"},
        {172, 4, h + "bad freeSlots: 4 slots: 4"},
        {176, 3, h + "bad mostSlots:3 numSlots:4"},
    };
    for (const auto& [at, value, message] : cases) EXPECT_EQ(check(at, value, good.size()), message);
    EXPECT_EQ(check(156, 17, good.size()).find(h + "checksum fail: "), 0u);
    EXPECT_EQ(check(172, 0xFFFFFFFFu, good.size()), "");
    EXPECT_EQ(check(12, 0xabc, good.size(), 0), "");
    EXPECT_EQ(check(180, 0, good.size() - 1), h + "bad shmem size:391 wanted:392 for 4 slots");
    EXPECT_EQ(check(180, 0, 231), h + "bad header file size: 231 wanted:232");
}

TEST(ConquerTableValidate, StopsAtTheFirstFaultAndNamesIt) {
    TestTable<GoodOps> table(sized(16));
    const std::string good = bytesOf(table.file("conquer.2"));
    const auto check = [&](std::size_t at, std::uint32_t value, std::size_t size) {
        return verdict<Memtab::ConquerTable::Header>(good, at, value, size, 0x1234);
    };
    const std::string c = "ConquerTable::validate() ";
    EXPECT_EQ(check(28, 0, 71).find(c + "bad header file size: 71"), 0u);
    EXPECT_EQ(check(0, 0, good.size()).find(c + "bad magic: "), 0u);
    EXPECT_EQ(check(8, 6, good.size()), c + "bad version: 6");
    EXPECT_EQ(check(12, 1, good.size()).find(c + "bad fenix:1"), 0u);
    EXPECT_EQ(check(28, 0, good.size() - 1).find(c + "bad shmem size:839"), 0u);
    EXPECT_EQ(check(36, 2, good.size()), c + "bad tableId:2");
    EXPECT_EQ(check(36, 1, good.size()), "");
}

TEST(SlotTable, RefusesTypeNamesThatDoNotFit) {
    const auto attach = [](std::size_t valueName, std::size_t className) {
        ScratchDir scratch;
        Mem::SharedDirectory directory(scratch.path());
        Item item;
        const Memtab::SlotTable::Format stored{std::string(valueName, 'v'), std::string(className, 'c'), sizeof(Item),
                                               &item};
        TestTable<GoodOps>::Writer writer(Quil::Trace::handler("test"), "t", sized(16), stored);
        try {
            writer.attach(directory, 1);
            return std::string();
        } catch (const Verro::InvalidInitializeException& error) {
            return std::string(error.what());
        }
    };
    EXPECT_EQ(attach(63, 63), "");
    EXPECT_EQ(attach(64, 1), "SlotTable::Header() value typename " + std::string(64, 'v') + " exceeds 64 characters");
    EXPECT_EQ(attach(1, 64), "SlotTable::Header() class typename: " + std::string(64, 'c') + " exceeds 64 characters");
}

}  // namespace
