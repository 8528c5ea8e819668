// Signals.h: signals as events of the loop, between two turns.
#pragma once

#include <functional>
#include <initializer_list>
#include <optional>

#include "Mem/Files.h"
#include "Quil/EventLoop.h"

namespace Apps {

class Signals {
 public:
    // Blocks these signals for the process and calls back for each that comes. Raises SystemException.
    Signals(Quil::EventLoop& loop, std::initializer_list<int> signals, std::function<void()> onSignal);

 private:
    Mem::FileDescriptor fd_;
    std::optional<Quil::EventLoop::Watch> watch_;
};

// SIGTERM and SIGINT end the loop.
class EndSignals : Signals {
 public:
    explicit EndSignals(Quil::EventLoop& loop);
};

}  // namespace Apps
