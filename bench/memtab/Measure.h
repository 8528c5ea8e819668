// Measure.h: rounds of several contestants in turn, their medians, and processes beside this one.
#pragma once

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

namespace bench {

// In the order of the columns. What a contestant has not is not a number.
enum Contestant { limit, bare, lmdb, engine, contestants };
using Figures = std::array<double, contestants>;
constexpr Figures noFigures{NAN, NAN, NAN, NAN};

inline double nanoseconds() {
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

inline double quantile(std::vector<double>& values, double q) {
    if (values.empty()) return NAN;
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, static_cast<std::size_t>(q * static_cast<double>(values.size())))];
}

// Runs the contestants in turn, round by round, so that a slow moment of the machine meets all of them. Each returns
// its nanoseconds. The first round warms up and does not count.
inline Figures medians(int rounds, const std::array<std::function<double()>, contestants>& run) {
    std::array<std::vector<double>, contestants> times;
    for (int round = -1; round < rounds; ++round) {
        for (int c = 0; c < contestants; ++c) {
            if (!run[c]) continue;
            const double time = run[c]();
            if (round >= 0) times[c].push_back(time);
        }
    }
    Figures figures;
    for (int c = 0; c < contestants; ++c) figures[c] = quantile(times[c], 0.5);
    return figures;
}

// Memory that a process and its children share.
template <class T>
class Shared {
 public:
    Shared() : at_(mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
        if (at_ == MAP_FAILED) std::abort();
        new (at_) T();
    }
    ~Shared() { munmap(at_, sizeof(T)); }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;
    T* operator->() const { return static_cast<T*>(at_); }
    T& operator*() const { return *static_cast<T*>(at_); }

 private:
    void* at_;
};

// Runs a function in a process of its own; this one does something else meanwhile, again and again.
inline void beside(const std::function<void()>& other, const std::function<void()>& meanwhile) {
    std::fflush(stdout);
    const pid_t child = fork();
    if (child < 0) std::abort();
    if (child == 0) {
        other();
        _exit(0);
    }
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) meanwhile();
    if (status == 0) return;
    std::fprintf(stderr, "bench-memtab: the other process failed\n");
    std::exit(2);
}

inline void printHead(const char* unit) {
    std::printf("\n%-22s  %8s  %9s  %9s  %9s  %9s  %7s  %7s  %7s\n", unit, "hosts", "limit", "bare", "LMDB", "engine",
                "x limit", "x bare", "x LMDB");
}
inline void print(const char* what, unsigned hosts, const Figures& f) {
    const auto cell = [](double value, int width, int digits) {
        std::isnan(value) ? std::printf("  %*s", width, "-") : std::printf("  %*.*f", width, digits, value);
    };
    std::printf("%-22s  %8u", what, hosts);
    for (const double figure : f) cell(figure, 9, 1);
    for (const int other : {limit, bare, lmdb}) cell(f[engine] / f[other], 7, 2);
    std::printf("\n");
    std::fflush(stdout);
}

}  // namespace bench
