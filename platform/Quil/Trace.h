// Trace.h: named trace handles with levels and bits; the debug handlers of the shared-memory engine are the same thing.
//
// A disabled level costs one branch and builds no string:
//   trace.log(9, [&] { return Quil::cat("write ", key); });
// Levels: 3 misconfiguration, 5 state changes, 8 detail per host, 9 signatures. Handles are off (level 0) until set,
// by levelIs() or by the environment: L2RIB_TRACE="MemtabTemp-host/9,L2Rib/5" ("*" means every handle).
//
// Threads   Levels may be read from any thread; handler() and the sink belong to the main thread.
// Lifetime  Handles live as long as the process.
#pragma once

#include <atomic>
#include <functional>

#include "Quil/Export.h"
#include "Quil/Text.h"

namespace Quil {

class L2RIB_EXPORT Trace {
 public:
    // The handle of this name, made at first use.
    static Trace& handler(const String& name);
    // The framework's default handle, named "default".
    static Trace& defaultHandle();
    // Where the lines go; stderr at first. Called with handle name, level and text.
    using Sink = std::function<void(const String& name, int level, const String& text)>;
    static void sinkIs(Sink sink);

    Trace(const Trace&) = delete;
    Trace& operator=(const Trace&) = delete;
    const String& name() const { return name_; }
    void levelIs(int level) { level_.store(level, std::memory_order_relaxed); }
    bool enabled(int level) const { return level <= level_.load(std::memory_order_relaxed); }
    // Bits select groups of messages within a handle; all are on at first.
    void bitsIs(std::uint32_t bits) { bits_.store(bits, std::memory_order_relaxed); }
    bool bit(std::uint32_t mask) const { return (bits_.load(std::memory_order_relaxed) & mask) != 0; }

    template <class Build>
    void log(int level, Build&& build) const {
        if (enabled(level)) [[unlikely]]
            emit(level, build());
    }

 private:
    explicit Trace(String name);
    void emit(int level, const String& text) const;

    const String name_;
    std::atomic<int> level_{0};
    std::atomic<std::uint32_t> bits_{0xffffffffu};
};

}  // namespace Quil
