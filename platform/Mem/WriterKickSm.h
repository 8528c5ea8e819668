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
        Quil::String name;
        int pid = 0;
        std::uint64_t sequence = 0;  // acknowledged
        std::uint32_t slotCounter = 0;
        std::uint32_t bucketCounter = 0;
        bool sleeping = false;
    };
    static constexpr std::uint64_t noReader = ~std::uint64_t(0);

    // Listens in the directory. onChange is called when a reader came, acknowledged or went.
    // kicks: sleeping readers are woken; else they look at intervals.
    WriterKickSm(Quil::EventLoop& loop, const Quil::String& directory, std::uint32_t fenix, bool kicks,
                 const std::uint64_t& currentSequence, std::function<void()> onChange);
    ~WriterKickSm() override;

    // The lowest sequence acknowledged by the connected readers; noReader without any.
    std::uint64_t lowestSequence() const;
    std::uint32_t numReaders() const;
    const std::list<Reader>& readers() const { return readers_; }
    void doKickSleepers() {
        if (sleepers_ > 0) [[unlikely]]
            kickSleepers();
    }
    void remove();  // the socket's name, at cleanup

 private:
    static constexpr int packetsPerTurn = 64;        // of one reader
    static constexpr Quil::Seconds acceptPause = 1;  // when descriptors ran out
    void listen();
    void onTime() override { listen(); }
    void accept();
    void receive(Reader& reader);
    bool handle(Reader& reader, const void* packet, std::size_t size);
    void kickSleepers();
    void kick(Reader& reader);
    void sleepingIs(Reader& reader, bool sleeping);
    void drop(Reader& reader);

    Quil::EventLoop& loop_;
    const Quil::String path_;
    const std::uint32_t fenix_;
    const bool kicks_;
    const std::uint64_t& currentSequence_;  // of the writer
    const std::function<void()> onChange_;
    FileDescriptor socket_;
    std::unique_ptr<Quil::EventLoop::Watch> watch_;
    std::list<Reader> readers_;
    std::uint32_t sleepers_ = 0;
};

}  // namespace Mem
