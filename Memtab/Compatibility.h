// Compatibility.h: which builds may share a table's files.
#pragma once

#include "Quil/Text.h"

namespace Memtab::Compatibility {

// Little-endian, records aligned to 4 bytes: what x86 builds of 32 and 64 bits have in common.
constexpr std::uint32_t thisPlatform = 1;

inline Quil::String platformType(std::uint32_t platform) {
    return platform == thisPlatform ? Quil::String("little-endian") : Quil::cat("unknown (", platform, ")");
}

}  // namespace Memtab::Compatibility
