// Shared memory under the engine: segments, the writer lock, the kick sockets.
#include <thread>

#include "Mem/Atomics.h"
#include "Mem/InotifyWatcher.h"
#include "Mem/Local.h"
#include "Mem/ReaderKickSm.h"
#include "Mem/Shared.h"
#include "Mem/WriterKickSm.h"
#include "SharedMem/FenixFile.h"
#include "Verro/Exception.h"
#include "support/Support.h"

namespace {

template <class Directory>
void growsUnderItsReader(Directory& directory) {
    auto writer = directory.create("file", 100);
    EXPECT_EQ(directory.open("file"), nullptr) << "not there before it is published";
    writer->base()[0] = std::byte{7};
    directory.publish("file");
    auto reader = directory.open("file");
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->base()[0], std::byte{7});
    Mem::AutoMemMove<std::byte> held(*writer, writer->base() + 50);
    writer->resize(9 << 20);
    EXPECT_EQ(held.get(), writer->base() + 50);
    writer->base()[(9 << 20) - 1] = std::byte{8};
    EXPECT_TRUE(reader->refresh());
    EXPECT_FALSE(reader->refresh());
    EXPECT_EQ(reader->base()[(9 << 20) - 1], std::byte{8});
    // What takes its place leaves it whole for those who have it mapped.
    auto next = directory.create("file", 10);
    directory.publish("file");
    EXPECT_EQ(reader->base()[(9 << 20) - 1], std::byte{8});
    EXPECT_EQ(directory.open("file")->size(), 10u);
}

TEST(Segment, OfAFileGrowsUnderItsReader) {
    test::ScratchDir scratch;
    Mem::SharedDirectory directory(scratch.path());
    growsUnderItsReader(directory);
}
TEST(Segment, OfPrivateMemoryGrowsUnderItsReader) {
    Mem::LocalDirectory directory("local", 16 << 20);
    growsUnderItsReader(directory);
    EXPECT_THROW(directory.create("too large", 17 << 20), Quil::MemoryResourceException);
}

TEST(Atomics, VersionedWordsWrap) {
    Mem::Word64 word{0};
    Mem::Versioned{0xfffffffeULL}.next(9, 4).store(word);
    EXPECT_EQ(Mem::Versioned::load(word).counter(), 2u);
    EXPECT_EQ(Mem::Versioned::load(word).value(), 9u);
    EXPECT_TRUE(Mem::Atomics::supported());
}

TEST(FenixFile, LocksOutASecondWriterAndChangesItsId) {
    test::ScratchDir scratch;
    SharedMem::FenixId first;
    {
        SharedMem::FenixFile fenix(scratch.path());
        fenix.write();
        first = fenix.id();
        EXPECT_NE(first, 0u);
        EXPECT_EQ(SharedMem::FenixFile::read(scratch.path()), first);
        EXPECT_TRUE(SharedMem::FenixFile::writerLives(scratch.path()));
        EXPECT_THROW(SharedMem::FenixFile(scratch.path()), Verro::InvalidInitializeException);
        EXPECT_EQ(SharedMem::FenixFile::read(scratch.path()), first);
    }
    EXPECT_FALSE(SharedMem::FenixFile::writerLives(scratch.path()));
    SharedMem::FenixFile fenix(scratch.path());
    fenix.write();
    EXPECT_NE(fenix.id(), first);
}

struct Handler : Mem::ReaderKickSm::Handler {
    std::uint32_t fenix = 0;
    int kicks = 0;
    bool closed = false;
    void onWelcome(std::uint32_t f, bool) override { fenix = f; }
    void onKick() override { ++kicks; }
    void onClosed() override { closed = true; }
};

TEST(KickSockets, WakeASleeperOncePerBurstAndNeverLoseAWakeUp) {
    test::ScratchDir scratch;
    Quil::EventLoop loop;
    Handler handler;
    struct Writer : Mem::WriterKickSm::Handler {
        std::uint64_t last = 5;
        std::uint64_t sequence() const override { return last; }
        void onAcknowledge(const Mem::WriterKickSm::Reader&, std::uint64_t) override {}
        void onReaders() override {}
    } table;
    auto writer = std::make_unique<Mem::WriterKickSm>(loop, scratch.path(), true, table);
    writer->fenixIs(0x77);
    auto reader = Mem::ReaderKickSm::connect(loop, scratch.path(), "test", 0, handler);
    ASSERT_TRUE(reader);
    ASSERT_TRUE(test::turnUntil(loop, [&] { return handler.fenix == 0x77; }));
    EXPECT_EQ(writer->lowestSequence(), 0u);  // it has not said yet what it has seen
    EXPECT_EQ(writer->readers().front().name, "test");

    Mem::KickAck ack;
    ack.sequence = 5;
    ack.sleeping = 1;
    reader->acknowledge(ack);
    ASSERT_TRUE(test::turnUntil(loop, [&] { return writer->readers().front().sleeping; }));
    EXPECT_EQ(writer->lowestSequence(), 5u);
    for (table.last = 6; table.last < 100; ++table.last) writer->doKickSleepers();
    ASSERT_TRUE(test::turnUntil(loop, [&] { return handler.kicks > 0; }));
    loop.runOnce(0.01);
    EXPECT_EQ(handler.kicks, 1);

    ack.sequence = 50;  // asleep on a state that has moved on: answered at once
    reader->acknowledge(ack);
    ASSERT_TRUE(test::turnUntil(loop, [&] { return handler.kicks == 2; }));
    EXPECT_EQ(writer->lowestSequence(), 50u);
    writer.reset();
    ASSERT_TRUE(test::turnUntil(loop, [&] { return handler.closed; }));
    EXPECT_EQ(Mem::ReaderKickSm::connect(loop, scratch.path(), "late", 0, handler), nullptr);
}

TEST(InotifyWatcher, TellsOfNewFiles) {
    test::ScratchDir scratch;
    Quil::EventLoop loop;
    int calls = 0;
    Mem::InotifyWatcher watcher(loop, scratch.path(), [&] { ++calls; });
    EXPECT_TRUE(watcher.active());
    Mem::Files::create(scratch.path() + "/x");
    EXPECT_TRUE(test::turnUntil(loop, [&] { return calls > 0; }));
    EXPECT_FALSE(Mem::InotifyWatcher(loop, scratch.path() + "/nothing", [] {}).active());
}

}  // namespace
