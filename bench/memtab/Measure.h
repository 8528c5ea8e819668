// Measure.h: rounds of several contestants in turn, their medians, and how they are printed.
#pragma once

#include <array>
#include <cmath>
#include <cstdio>
#include <functional>

#include "Processes.h"

namespace bench {

// In the order of the columns. What a contestant has not is not a number.
enum Contestant { limit, bare, lmdb, engine, contestants };
using Figures = std::array<double, contestants>;
constexpr Figures noFigures{NAN, NAN, NAN, NAN};

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
