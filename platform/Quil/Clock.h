// Clock.h: the time an object is given, and who wants to be woken when.
//
// Times are seconds as double on one monotonic scale; a real clock reads CLOCK_BOOTTIME, a manual one stands still
// until it is set. Objects never ask the system for the time.
//
// Threads   Event-loop thread. The loop calls run(); a test moves a ManualClock and calls run() itself.
#pragma once

#include <limits>
#include <set>
#include <utility>

#include "Quil/Ptr.h"

namespace Quil {

using Seconds = double;
constexpr Seconds never = std::numeric_limits<double>::infinity();

class L2RIB_EXPORT Clock : public Counted {
 public:
    // Someone to be woken. Never called from within wakeupTimeIs(), always from run().
    class L2RIB_EXPORT NotifieeConst {
     public:
        explicit NotifieeConst(Ptr<const Clock> clock);
        NotifieeConst(const NotifieeConst&) = delete;
        NotifieeConst& operator=(const NotifieeConst&) = delete;
        virtual ~NotifieeConst();
        const Clock& clock() const { return *clock_; }
        Seconds wakeupTime() const { return wakeupTime_; }
        // One call of onTime() at or after the time; a later setting replaces an earlier one, never cancels.
        void wakeupTimeIs(Seconds time);
        virtual void onTime() = 0;

     private:
        friend class Clock;
        Ptr<const Clock> clock_;
        Seconds wakeupTime_ = never;
    };

    virtual Seconds now() const = 0;
    Seconds nextWakeup() const { return waiting_.empty() ? never : waiting_.begin()->first; }
    // Calls onTime() of all that are due now, in order of time. What a callback makes due again waits for the next run.
    void run();

 private:
    // Whoever sees a clock may be woken by it; only its owner moves it.
    mutable std::set<std::pair<Seconds, NotifieeConst*>> waiting_;
    mutable std::set<std::pair<Seconds, NotifieeConst*>> due_;  // the round under way
};

class L2RIB_EXPORT RealClock : public Clock {
 public:
    Seconds now() const override;
};

class L2RIB_EXPORT ManualClock : public Clock {
 public:
    Seconds now() const override { return now_; }
    void nowIs(Seconds now) { now_ = now; }

 private:
    Seconds now_ = 0;
};

}  // namespace Quil
