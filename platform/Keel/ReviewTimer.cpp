#include "Keel/ReviewTimer.h"

#include <algorithm>
#include <cmath>

namespace Keel {

ReviewTimer::ReviewTimer(std::unique_ptr<Quil::Clock::NotifieeConst> notifiee, Quil::Seconds fillInterval,
                         std::uint32_t maxCredits, Quil::Seconds minDelay, Quil::Seconds maxDelay)
    : notifiee_(std::move(notifiee)),
      fillInterval_(fillInterval),
      maxCredits_(maxCredits),
      minDelay_(minDelay),
      maxDelay_(maxDelay),
      credits_(maxCredits),
      filled_(notifiee_->clock().now()) {}

ReviewTimer::~ReviewTimer() = default;

void ReviewTimer::fill(Quil::Seconds now) {
    const double came = std::floor((now - filled_) / fillInterval_);
    if (came >= maxCredits_ - credits_) {
        credits_ = maxCredits_;
        filled_ = now;
    } else if (came > 0) {
        credits_ += static_cast<std::uint32_t>(came);
        filled_ += came * fillInterval_;
    }
}

void ReviewTimer::doUpdateNextReview() {
    if (notifiee_->wakeupTime() != Quil::never) return;
    const Quil::Seconds now = notifiee_->clock().now();
    fill(now);
    if (credits_ > 0) {
        --credits_;
        notifiee_->wakeupTimeIs(std::max(now, timeOfLastReview_) + minDelay_);
    } else {
        notifiee_->wakeupTimeIs(std::clamp(filled_ + fillInterval_, now + minDelay_, now + maxDelay_));
    }
}

}  // namespace Keel
