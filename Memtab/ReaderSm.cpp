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
    if (state == state_) return;
    state_ = state;
    front_.onState();
}

void ReaderSm::detach() {
    kick_.reset();
    watcher_.reset();
    wakeupTimeIs(Quil::never);
    stateIs(State::detached);
}

void ReaderSm::tryMount() {
    working_ = false;
    if (!watcher_ || !watcher_->active()) {
        watcher_ = std::make_unique<Mem::InotifyWatcher>(loop_, directory_, [this] { onDirectoryChange(); });
    }
    wakeIn(retryInterval);
    const FenixId fenix = FenixFile::read(directory_);
    if (fenix == 0) return;
    kick_ = Mem::ReaderKickSm::connect(loop_, directory_, readerName_, fenix, *this);
    if (kick_) {
        wakeIn(welcomeTimeout);
    } else if (fenix != attached_ && !FenixFile::writerLives(directory_) && attach(fenix)) {
        stateIs(State::stale);
        work();
    }
}

bool ReaderSm::attach(FenixId fenix) {
    Quil::String reason;
    if (!front_.attachFiles(fenix, reason)) {
        debug_.log(5, [&] { return cat("ReaderSm::attach() ", directory_, " cannot be mounted: ", reason); });
        return false;
    }
    attached_ = fenix;
    return true;
}

void ReaderSm::onWelcome(FenixId fenix) {
    if (!attach(fenix)) {
        kick_.reset();
        wakeIn(retryInterval);
        return;
    }
    stateIs(State::mounted);
    work();
}

void ReaderSm::onClosed() {
    kick_.reset();
    if (state_ == State::mounted) stateIs(State::stale);
    if (state_ != State::detached && !working_) wakeIn(retryInterval);
}

void ReaderSm::onDirectoryChange() {
    if (!kick_ && state_ != State::detached && !working_) tryMount();
}

void ReaderSm::onTime() { working_ ? work() : tryMount(); }

void ReaderSm::work() {
    if (state_ == State::detached) return;
    const Turn turn = front_.turn();
    if (state_ == State::detached) return;  // a callback of the turn has let go of the table
    working_ = turn == Turn::more;
    Quil::Seconds next = working_ ? 0 : kick_ ? Quil::never : retryInterval;
    if (turn == Turn::failed) {
        kick_.reset();
        attached_ = 0;
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
