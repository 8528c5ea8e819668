// WriterKickSm.h: the writer's end of the kick socket: who reads, how far each has got, and waking those who sleep.
//
// Threads   The writer's event-loop thread. Sending never blocks.
// Cost      A change costs no system call while no reader sleeps; a burst wakes a sleeper once.
#pragma once

#include <list>
#include <memory>

#include "Mem/Files.h"
#include "Quil/EventLoop.h"

namespace Mem {

class L2RIB_EXPORT WriterKickSm : Quil::Clock::NotifieeConst {
 public:
    struct Reader {
        FileDescriptor socket;
        std::unique_ptr<Quil::EventLoop::Watch> watch;
        bool welcomed = false;
        bool acknowledged = false;  // it has said at least once what it has mapped
        Quil::String name;
        int pid = 0;
        std::uint64_t sequence = 0;  // acknowledged
        std::uint32_t slotCounter = 0;
        std::uint32_t bucketCounter = 0;
        bool sleeping = false;
        Quil::Seconds since = 0;  // when it connected
    };
    static constexpr std::uint64_t noReader = ~std::uint64_t(0);

    // The table's writer.
    class L2RIB_EXPORT Handler {
     public:
        virtual ~Handler();
        virtual std::uint64_t sequence() const = 0;                           // of the last change
        virtual void onAcknowledge(const Reader&, std::uint64_t before) = 0;  // it had said before
        virtual void onReaders() = 0;                                         // readers came, acknowledged or went
    };

    // Listens in the directory; nobody is answered before a turn of the loop. kicks: sleeping readers are woken; else
    // they look at intervals.
    WriterKickSm(Quil::EventLoop& loop, const Quil::String& directory, bool kicks, Handler& handler);
    ~WriterKickSm() override;
    // The incarnation that readers are told.
    void fenixIs(std::uint32_t fenix) { fenix_ = fenix; }

    // The lowest sequence acknowledged by the connected readers; noReader without any.
    std::uint64_t lowestSequence() const;
    std::uint32_t numReaders() const;
    // These two take in who is waiting to be accepted first, and are false when that fails: who waits may have mapped
    // the files. Whether everyone has said who it is; whether everyone has mapped files of these counts.
    bool allAreWelcomed();
    bool allHaveMapped(std::uint32_t slotCounter, std::uint32_t bucketCounter);
    // Disconnects the reader that is farthest behind: it will come back and compare the whole table. False without any.
    bool dropSlowest();
    // Whether a reader was ever disconnected without having asked for it: it may still have the files mapped.
    bool hasOutcasts() const { return hasOutcasts_; }
    const std::list<Reader>& readers() const { return readers_; }
    void doKickSleepers() {
        if (sleepers_ > 0) [[unlikely]]
            kickSleepers();
    }

 private:
    static constexpr int packetsPerTurn = 64;  // of one reader
    static constexpr Quil::Seconds pause = 1;  // when descriptors or memory ran out
    void listen();
    void onTime() override;
    enum class Accepted { one, nobody, failed };
    Accepted accept();
    bool acceptAll();
    void receive(Reader& reader);
    bool handle(Reader& reader, const void* packet, std::size_t size);
    void tellReaders(Reader& asking);
    void kickSleepers();
    void kick(Reader& reader);
    void sleepingIs(Reader& reader, bool sleeping);
    void drop(Reader& reader);

    Quil::EventLoop& loop_;
    std::uint32_t fenix_ = 0;
    const bool kicks_;
    Handler& handler_;
    FileDescriptor socket_;
    std::unique_ptr<Quil::EventLoop::Watch> watch_;
    std::list<Reader> readers_;
    std::uint32_t sleepers_ = 0;
    bool hasOutcasts_ = false;
};

}  // namespace Mem
