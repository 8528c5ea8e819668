// Settings.h: how a plug-in is set: by environment variables of its process (l2rib-consumer --set NAME=VALUE).
//
//   L2RIB_SOURCE_FILTER   names of sources, separated by commas; unset: all
#pragma once

#include <cstdlib>

#include "common/Names.h"

namespace Plugins {

// Empty when it is not set.
inline Quil::String setting(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

inline std::uint32_t sourceFilter() {
    const Quil::String names = setting("L2RIB_SOURCE_FILTER");
    return names.empty() ? L2Rib::sourceAll : Apps::sourceMaskOf(names);
}

}  // namespace Plugins
