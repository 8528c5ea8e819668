// EndSignals.h: SIGTERM and SIGINT end the loop of a process, between two turns.
#pragma once

#include <optional>

#include "Mem/Files.h"
#include "Quil/EventLoop.h"

namespace Apps {

class EndSignals {
 public:
    explicit EndSignals(Quil::EventLoop& loop);  // raises SystemException

 private:
    Mem::FileDescriptor fd_;
    std::optional<Quil::EventLoop::Watch> watch_;
};

}  // namespace Apps
