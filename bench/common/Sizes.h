// Sizes.h: the numbers of hosts that a benchmark is given.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace bench {

// The arguments, or the usual ones without any. Ends the program for one out of bounds.
inline std::vector<std::uint32_t> sizesOf(const char* program, int argc, char** argv,
                                          const std::vector<std::uint32_t>& usual = {16384, 131072, 1048576}) {
    constexpr long most = 1 << 24;
    std::vector<std::uint32_t> sizes;
    for (int i = 1; i < argc; ++i) {
        const long size = std::atol(argv[i]);
        if (size < 1 || size > most) {
            std::fprintf(stderr, "%s: HOSTS %s: < 1 or > %ld not allowed\n", program, argv[i], most);
            std::exit(2);
        }
        sizes.push_back(static_cast<std::uint32_t>(size));
    }
    return sizes.empty() ? usual : sizes;
}

}  // namespace bench
