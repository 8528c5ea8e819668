// ReviewTimer.h: paces reviews: a burst of them may follow closely, many of them only as fast as credits come back.
//
// It starts with the maximum of credits and gains one for every fill interval, up to the maximum. A review that is
// asked for while there is a credit spends it and comes after the minimum delay; without one it comes when the next
// credit does, between the minimum and the maximum delay from now.
//
// Owner     Whoever reviews; the timer owns the clock notifiee whose onTime() is the review.
// Threads   Event-loop thread. Nothing fires from within a call of the timer, only from the clock.
// Units     Seconds of the notifiee's clock.
#pragma once

#include <memory>

#include "Quil/Clock.h"

namespace Keel {

class L2RIB_EXPORT ReviewTimer : public Quil::Counted {
 public:
    ReviewTimer(std::unique_ptr<Quil::Clock::NotifieeConst> notifiee, Quil::Seconds fillInterval,
                std::uint32_t maxCredits, Quil::Seconds minDelay, Quil::Seconds maxDelay);
    ~ReviewTimer() override;

    // Asks for a review. Nothing happens while one is due already.
    void doUpdateNextReview();
    // Past all pacing: for what could not be finished in one go.
    void wakeupTimeIs(Quil::Seconds time) { notifiee_->wakeupTimeIs(time); }
    Quil::Seconds wakeupTime() const { return notifiee_->wakeupTime(); }
    // The next review keeps the minimum delay from this moment, too.
    void timeOfLastReviewIs(Quil::Seconds time) { timeOfLastReview_ = time; }
    Quil::Seconds timeOfLastReview() const { return timeOfLastReview_; }
    std::uint32_t credits() const { return credits_; }  // when last asked for a review

 private:
    void fill(Quil::Seconds now);

    const std::unique_ptr<Quil::Clock::NotifieeConst> notifiee_;
    const Quil::Seconds fillInterval_;
    const std::uint32_t maxCredits_;
    const Quil::Seconds minDelay_;
    const Quil::Seconds maxDelay_;
    std::uint32_t credits_;
    Quil::Seconds filled_;  // when the last credit came; with all of them there, now
    Quil::Seconds timeOfLastReview_ = -Quil::never;
};

}  // namespace Keel
