// ReaderSm: a reader's life with a writer that may be absent, start, crash and come back.
//
//   state      clock, directory changed                  writer welcomes         writer gone     detach()
//   mounting   connect, attach -> mounted; or, without   -                       -               -> detached
//              a writer, attach -> stale
//   mounted    one turn of work                          learns whether it is    -> stale        -> detached
//                                                        kicked
//   stale      as mounting; old files serve meanwhile    -                       -               -> detached
//   detached   -                                         -                       -               -
//
// A reader is connected before it maps the files, or finds that no writer lives: either way nothing is taken from under
// its mapping. Connected is enough, also while the writer is stopped or busy: before a writer shortens a file it takes
// in all who are connected, and who connects later finds the smaller count published and maps no more than that.
//
// Threads   Event-loop thread; times are the loop's clock.
#pragma once

#include "Mem/InotifyWatcher.h"
#include "Mem/ReaderKickSm.h"
#include "Quil/Trace.h"
#include "SharedMem/FenixFile.h"

namespace Memtab {

class L2RIB_EXPORT ReaderSm : Mem::ReaderKickSm::Handler, Quil::Clock::NotifieeConst {
 public:
    enum class State { mounting, mounted, stale, detached };
    enum class Turn { drained, more, failed };

    // The table that is mounted.
    class L2RIB_EXPORT Front {
     public:
        virtual ~Front();
        // Maps the files of this incarnation in place of what was mapped before; false leaves everything as it was.
        virtual bool attachFiles(SharedMem::FenixId fenix, Quil::String& reason) = 0;
        // A bounded amount of work. Failed: the table does not hang together, mount it again later.
        virtual Turn turn() = 0;
        virtual Mem::KickAck acknowledgement() const = 0;
        virtual void onState() = 0;
        // Held while this object is at work: a callback may drop the last other reference to the table.
        virtual Quil::Ptr<const Quil::Counted> keepAlive() const = 0;
    };

    ReaderSm(Quil::Trace& debug, Quil::EventLoop& loop, Quil::String directory, Quil::String readerName, Front& front);
    // Mounts at once what can be mounted. Changes are delivered from the loop's next turn on: who watches the table by
    // then is told of everything in it.
    void start() { tryMount(); }
    void detach();
    State state() const { return state_; }

 private:
    static constexpr Quil::Seconds retryInterval = 0.25;
    static constexpr Quil::Seconds corruptionPause = 1;
    static constexpr Quil::Seconds acknowledgeRetry = 0.01;

    void attachWelcomed(SharedMem::FenixId fenix, bool kicks);
    void onWelcome(SharedMem::FenixId fenix, bool kicks) override;
    void onKick() override;
    void onClosed() override;
    void onTime() override;
    void onDirectoryChange();
    void tryMount();
    void connectOrAttach(SharedMem::FenixId fenix);
    bool attach(SharedMem::FenixId fenix);
    void work();
    Turn takeTurn();
    void stateIs(State state);
    void wakeIn(Quil::Seconds delay);

    Quil::Trace& debug_;
    Quil::EventLoop& loop_;
    const Quil::String directory_;
    const Quil::String readerName_;
    Front& front_;
    State state_ = State::mounting;
    SharedMem::FenixId attached_ = 0;  // incarnation of the mapped files, while all its changes reach us; 0: map again
    std::uint64_t attachedStart_ = 0;  // when the writer began whose changes are known
    bool kicks_ = true;                // the writer wakes us; else we look at intervals
    bool working_ = false;             // the next wake-up is a turn, not an attempt to mount
    bool inTurn_ = false;              // the front is at work on its mapping
    bool hasFiles_ = false;            // some incarnation has been mapped
    bool awaitsWelcome_ = false;       // connected; mapped when the writer answers
    std::unique_ptr<Mem::ReaderKickSm> kick_;
    std::unique_ptr<Mem::InotifyWatcher> watcher_;
};

}  // namespace Memtab
