#include "agent/Policy.h"

namespace Agent {

std::uint32_t Policy::preference(L2Rib::Source source, const L2Rib::Host& host) const {
    if (host.preference() != 0) return host.preference();
    const auto configured = preferences.find(source);
    return configured == preferences.end() ? defaultPreference(source) : configured->second;
}

std::uint32_t Policy::quota(L2Rib::Source source) const {
    const auto configured = quotas.find(source);
    return configured == quotas.end() ? 0 : configured->second;
}

std::uint32_t defaultPreference(L2Rib::Source source) {
    switch (source) {
        case L2Rib::sourceRouterMac:
            return 250;
        case L2Rib::sourceLocalStatic:
            return 230;
        case L2Rib::sourceVxlanStatic:
            return 210;
        case L2Rib::sourceDot1x:
            return 200;
        case L2Rib::sourceMss:
            return 190;
        default:
            return 100;
    }
}

}  // namespace Agent
