#include "Memtab/ReaderSm.h"

namespace Memtab {

using Quil::cat;
using SharedMem::FenixFile;
using SharedMem::FenixId;

ReaderSm::Front::~Front() = default;

ReaderSm::ReaderSm(Quil::Trace& debug, Quil::EventLoop& loop, Quil::String directory, Quil::String readerName,
                   Front& front)
    : Quil::Clock::NotifieeConst(loop.clock()),
      debug_(debug),
      loop_(loop),
      directory_(std::move(directory)),
      readerName_(std::move(readerName)),
      front_(front) {}

void ReaderSm::stateIs(State state) {
    if (state == state_ || state_ == State::detached) return;
    state_ = state;
    front_.onState();
}

void ReaderSm::wakeIn(Quil::Seconds delay) {
    if (state_ != State::detached) wakeupTimeIs(loop_.clock()->now() + delay);
}

// The connection stays as long as the files may be mapped: in a turn, to its end.
void ReaderSm::detach() {
    if (!inTurn_) kick_.reset();
    watcher_.reset();
    wakeupTimeIs(Quil::never);
    stateIs(State::detached);
}

void ReaderSm::tryMount() {
    if (state_ == State::detached || awaitsWelcome_) return;
    const auto keep = front_.keepAlive();
    working_ = false;
    if (!watcher_ || !watcher_->active()) {
        watcher_ = std::make_unique<Mem::InotifyWatcher>(loop_, directory_, [this] { onDirectoryChange(); });
    }
    wakeIn(retryInterval);
    try {
        const FenixId fenix = FenixFile::read(directory_);
        if (fenix != 0) connectOrAttach(fenix);
    } catch (const Quil::Exception& error) {
        debug_.log(3, [&] { return cat("ReaderSm::tryMount() ", directory_, ": ", error.what()); });
    }
}

void ReaderSm::connectOrAttach(FenixId fenix) {
    // An older connection stays until other files take the place of those that were mapped under it.
    auto fresh = Mem::ReaderKickSm::connect(loop_, directory_, readerName_, fenix, *this);
    const bool connected = fresh != nullptr;
    // A writer that goes on with the files may have come and gone without our having looked.
    const bool isKnown = fenix == attached_ && FenixFile::startTime(directory_) == attachedStart_;
    if (!connected && (isKnown || FenixFile::writerLives(directory_))) return;
    if (connected && hasFiles_ && !kick_) {
        kick_ = std::move(fresh);
        awaitsWelcome_ = true;
        return;
    }
    if (!attach(fenix)) return;
    kick_ = std::move(fresh);
    kicks_ = true;
    stateIs(connected ? State::mounted : State::stale);
    working_ = true;
    wakeIn(0);
}

// Whether the files are mapped now, and still wanted: the callbacks of an attach may let go of the table.
bool ReaderSm::attach(FenixId fenix) {
    Quil::String reason;
    const std::uint64_t start = FenixFile::startTime(directory_);
    try {
        if (front_.attachFiles(fenix, reason)) {
            attached_ = fenix;
            attachedStart_ = start;
            hasFiles_ = true;
            return state_ != State::detached;
        }
    } catch (const Quil::SystemException& error) {
        reason = error.what();
    } catch (const Quil::MemoryResourceException& error) {
        reason = error.what();
    }
    debug_.log(5, [&] { return cat("ReaderSm::attach() ", directory_, " cannot be mounted: ", reason); });
    return false;
}

// Who has the files of a writer that is gone waits with those of the next until its loop turns, which is when it has
// filled them: so nobody is told that everything has gone and come back.
void ReaderSm::attachWelcomed(FenixId fenix, bool kicks) {
    const auto keep = front_.keepAlive();
    awaitsWelcome_ = false;
    if (!attach(fenix)) {
        kick_.reset();
        return wakeIn(retryInterval);
    }
    kicks_ = kicks;
    stateIs(State::mounted);
    working_ = true;
    wakeIn(0);
}

void ReaderSm::onWelcome(FenixId fenix, bool kicks) {
    if (awaitsWelcome_) return attachWelcomed(fenix, kicks);
    if (attached_ == 0) return;  // about to be mounted again; the connection guards what is still mapped
    kicks_ = kicks;
    if (fenix != attached_) return onClosed();  // of another incarnation than the files
    if (!kicks_ && !working_) wakeIn(retryInterval);
}

void ReaderSm::onKick() {
    if (state_ == State::mounted) work();
}

// The last changes of a writer that is gone may lie in the files without a notification that reached us: they are
// mapped and compared once more.
void ReaderSm::onClosed() {
    const auto keep = front_.keepAlive();
    kick_.reset();
    awaitsWelcome_ = false;
    attached_ = 0;
    working_ = false;
    if (state_ == State::mounted) stateIs(State::stale);
    wakeIn(0);
}

void ReaderSm::onDirectoryChange() {
    if (!kick_ && !working_) tryMount();  // a connection that only guards waits for its time
}

void ReaderSm::onTime() { working_ || (kick_ && !kicks_ && state_ == State::mounted) ? work() : tryMount(); }

ReaderSm::Turn ReaderSm::takeTurn() {
    struct Guard {
        ReaderSm& sm;
        ~Guard() {
            sm.inTurn_ = false;
            if (sm.state_ == State::detached) sm.kick_.reset();
        }
    } guard{*this};
    inTurn_ = true;
    working_ = true;  // should a callback throw, the next turn goes on
    wakeIn(0);
    return front_.turn();
}

void ReaderSm::work() {
    if (state_ == State::detached) return;
    const auto keep = front_.keepAlive();
    const Turn turn = takeTurn();
    if (state_ == State::detached) return;  // a callback of the turn has let go of the table
    working_ = turn == Turn::more;
    Quil::Seconds next = working_ ? 0 : kick_ && kicks_ ? Quil::never : retryInterval;
    if (turn == Turn::failed) {
        attached_ = 0;  // still connected, since the files stay mapped until others take their place
        stateIs(State::stale);
        next = corruptionPause;
    } else if (kick_) {
        Mem::KickAck ack = front_.acknowledgement();
        ack.sleeping = !working_;
        // ORDER sleep, with WriterKickSm::handle: if the table moved on since this turn, the writer answers at once.
        if (!kick_->acknowledge(ack)) {
            working_ = true;
            next = acknowledgeRetry;
        }
    }
    wakeIn(next);
}

}  // namespace Memtab
