// Counter.h: named 64-bit event counters and the registry that lists them.
//
// Owner     The object that counts owns its Counter; the registry knows it from construction to destruction. Several
//           counters may share a name (each table has its "hostIs").
// Threads   Event-loop thread; increments are plain.
#pragma once

#include <cstdint>
#include <vector>

#include "Quil/Export.h"
#include "Quil/Text.h"

namespace Quil {

class L2RIB_EXPORT Counter {
 public:
    explicit Counter(String name);
    ~Counter();
    Counter(const Counter&) = delete;
    Counter& operator=(const Counter&) = delete;

    const String& name() const { return name_; }
    std::uint64_t value() const { return value_; }
    Counter& operator++() {
        ++value_;
        return *this;
    }

 private:
    const String name_;
    std::uint64_t value_ = 0;
};

struct L2RIB_EXPORT CounterRegistry {
    // Every living counter, in order of creation.
    static const std::vector<const Counter*>& counters();
    // The sum over all counters of the name.
    static std::uint64_t total(const String& name);
};

}  // namespace Quil
