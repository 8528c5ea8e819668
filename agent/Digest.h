// Digest: says what happens often only once per interval: the first at once, of the others how many there were.
#pragma once

#include <functional>

#include "Quil/Clock.h"
#include "Quil/Text.h"

namespace Agent {

class Digest : Quil::Clock::NotifieeConst {
 public:
    using Say = std::function<void(const Quil::String&)>;

    Digest(const Quil::Ptr<const Quil::Clock>& clock, Say say) : NotifieeConst(clock), say_(std::move(say)) {}
    ~Digest() override = default;

    void intervalIs(Quil::Seconds interval) { interval_ = interval; }
    void event(const Quil::String& text) {
        last_ = text;
        if (wakeupTime() != Quil::never) return void(++more_);
        say_(text);
        wakeupTimeIs(clock().now() + interval_);
    }

 private:
    void onTime() override {
        if (more_ == 0) return;
        say_(more_ == 1 ? last_ : Quil::cat(more_, " more since then, the last: ", last_));
        more_ = 0;
        wakeupTimeIs(clock().now() + interval_);
    }

    const Say say_;
    Quil::Seconds interval_ = 60;
    std::uint64_t more_ = 0;
    Quil::String last_;
};

}  // namespace Agent
