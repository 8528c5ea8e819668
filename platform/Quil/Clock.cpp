#include "Quil/Clock.h"

#include <time.h>

namespace Quil {

Clock::NotifieeConst::NotifieeConst(Ptr<const Clock> clock) : clock_(std::move(clock)) {}

Clock::NotifieeConst::~NotifieeConst() { wakeupTimeIs(never); }

void Clock::NotifieeConst::wakeupTimeIs(Seconds time) {
    clock_->waiting_.erase({wakeupTime_, this});
    clock_->due_.erase({wakeupTime_, this});
    wakeupTime_ = time;
    if (time != never) clock_->waiting_.insert({time, this});
}

void Clock::run() {
    const Ptr<Clock> keep(this);
    const Seconds time = now();
    while (!waiting_.empty() && waiting_.begin()->first <= time) {
        due_.insert(waiting_.extract(waiting_.begin()));
    }
    while (!due_.empty()) {
        NotifieeConst* notifiee = due_.begin()->second;
        due_.erase(due_.begin());
        notifiee->wakeupTime_ = never;
        notifiee->onTime();
    }
}

Seconds RealClock::now() const {
    timespec time{};
    clock_gettime(CLOCK_BOOTTIME, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

}  // namespace Quil
