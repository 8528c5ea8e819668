// A plug-in that must not be taken: which way it is bad is chosen by the build.
#include <stdexcept>

#include "L2Rib/Plugin/Context.h"
#include "L2Rib/Plugin/Loader.h"

extern "C" {

[[gnu::visibility("default")]] std::uint32_t l2ribPluginInterface() {
#ifdef OTHER_INTERFACE
    return L2Rib::Plugin::interfaceNumber + 1;
#else
    return L2Rib::Plugin::interfaceNumber;
#endif
}

#ifndef NO_ENTRY
[[gnu::visibility("default")]] void l2ribPluginInit(const Quil::Ptr<L2Rib::Plugin::Context>&) {
    throw std::runtime_error("from its entry point");
}
#endif

}  // extern "C"
