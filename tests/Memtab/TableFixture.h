// TableFixture.h: one table of small self-accusing records, a writer and a reader of it, in one process.
#pragma once

#include <functional>
#include <utility>

#include "Mem/Local.h"
#include "Mem/ReaderKickSm.h"
#include "Mem/Shared.h"
#include "Memtab/ConquerReader.h"
#include "Memtab/MemtabReader.h"
#include "Memtab/MemtabWriter.h"
#include "Memtab/Ops.h"
#include "support/Support.h"

namespace test {

struct NumberKey {
    std::uint32_t number = 0;
    std::uint32_t hash() const { return Verro::OneAtATime().add(number).finish(); }
    std::uint32_t identity() const { return number; }
    std::uint32_t constant() const { return 7; }
    // Runs what is set, once: in the middle of whatever looks for a key.
    std::uint32_t hooked() const {
        if (const auto run = std::exchange(atHash, nullptr)) run();
        return hash();
    }
    inline static std::function<void()> atHash;
    std::string str() const { return std::to_string(number); }
    friend auto operator<=>(const NumberKey&, const NumberKey&) = default;
};

struct Item {
    NumberKey key;
    std::uint32_t generation = 0;
    std::uint32_t filler[3] = {};  // functions of the two

    Item() = default;
    Item(std::uint32_t number, std::uint32_t g)
        : key{number}, generation(g), filler{number ^ g, number + g, number * 3 + g} {}
    NumberKey fwkKey() const { return key; }
    std::string str() const { return std::to_string(key.number) + "/" + std::to_string(generation); }
    bool isWhole() const {
        return std::memcmp(this, &static_cast<const Item&>(Item(key.number, generation)), sizeof *this) == 0;
    }
};

using GoodOps = Memtab::Ops<NumberKey, Item>;
using IdentityOps = Memtab::Ops<NumberKey, Item, Memtab::Hash<NumberKey, &NumberKey::identity>>;
using HookedOps = Memtab::Ops<NumberKey, Item, Memtab::Hash<NumberKey, &NumberKey::hooked>>;
using ConstantOps = Memtab::Ops<NumberKey, Item, Memtab::Hash<NumberKey, &NumberKey::constant>>;

template <class OpsType>
struct TestTable {
    using Writer = Memtab::MemtabWriter<NumberKey, Item, OpsType>;
    using Reader = Memtab::MemtabReader<NumberKey, Item, OpsType>;

    Quil::Trace& debug = Quil::Trace::handler("test-table");
    Item defaultItem;
    Memtab::SlotTable::Format stored{"test::Item", "test::Table", sizeof(Item), &defaultItem};
    ScratchDir scratch;
    Mem::SharedDirectory directory{scratch.path()};
    std::unique_ptr<Writer> writer;

    Memtab::Options options;
    Quil::EventLoop loop;
    struct Handler : Mem::ReaderKickSm::Handler {
        void onWelcome(std::uint32_t, bool) override {}
        void onKick() override {}
        void onClosed() override {}
    } handler;
    std::unique_ptr<Mem::WriterKickSm> kickSm;
    std::unique_ptr<Mem::ReaderKickSm> connection;

    ~TestTable() { writer->kickSmIs(nullptr); }
    explicit TestTable(Memtab::Options o)
        : writer(std::make_unique<Writer>(debug, "test", o, stored)), options(std::move(o)) {
        writer->attach(directory, 0x1234);
    }
    // The writer goes, and another one takes over what it left. Whether that was whole.
    bool restart() {
        connection.reset();
        kickSm.reset();
        writer = std::make_unique<Writer>(debug, "test", options, stored);
        return writer->attachExisting(directory, 0x1234);
    }
    // A reader that the writer knows of: what it has mapped is not taken from under it.
    void connect() {
        kickSm = std::make_unique<Mem::WriterKickSm>(loop, scratch.path(), true, *writer);
        kickSm->fenixIs(0x1234);
        writer->kickSmIs(kickSm.get());
        connection = Mem::ReaderKickSm::connect(loop, scratch.path(), "reader", 0x1234, handler);
        if (!turnUntil(loop, [&] { return kickSm->numReaders() == 1; })) throw std::runtime_error("not connected");
    }
    void acknowledge(const Reader& reader, const Memtab::ConquerReader& queue) {
        Mem::KickAck ack;
        ack.sequence = queue.sequence();
        ack.slotCounter = reader.slotCounter();
        ack.bucketCounter = reader.bucketCounter();
        ack.sleeping = 1;  // answered when the writer has read it, if it has anything new
        connection->acknowledge(ack);
        const auto arrived = [&] {
            const auto& known = kickSm->readers().front();
            return known.acknowledged && known.sequence == ack.sequence && known.slotCounter == ack.slotCounter &&
                   known.bucketCounter == ack.bucketCounter;
        };
        if (!turnUntil(loop, arrived)) throw std::runtime_error("not acknowledged");
    }
    // Empty when all is well.
    std::string fault() {
        Quil::String reason;
        return writer->validate(directory, 0, reason) ? "" : reason;
    }
    Reader reader() {
        Reader fresh(debug);
        Quil::String reason;
        if (!fresh.attach(directory, 0x1234, stored, reason)) throw std::runtime_error(reason);
        return fresh;
    }
    Memtab::ConquerReader queue() {
        Memtab::ConquerReader fresh;
        Quil::String reason;
        if (!fresh.attach(debug, directory, 0x1234, reason)) throw std::runtime_error(reason);
        return fresh;
    }
    std::string file(const char* name) const { return scratch.path() + "/" + name; }
};

inline Memtab::Options sized(std::uint32_t maxSize, std::uint32_t initialSlots = 0) {
    Memtab::Options options;
    options.maxSize = maxSize;
    options.initialSlots = initialSlots;
    return options;
}

}  // namespace test
