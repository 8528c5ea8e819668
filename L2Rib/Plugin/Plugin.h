// Plugin.h: what a plug-in is made of. Only plug-ins include this, one source file of each.
//
// A plug-in is a shared object that defines
//
//     extern "C" void l2ribPluginInit(const Quil::Ptr<L2Rib::Plugin::Context>& context) { ... }
//
// and usually makes a class derived from L2Rib::L2RibClientSm there, which it keeps as long as the process lives.
// Called once, on the event-loop thread. What it throws is traced, and the process goes on without the plug-in.
#pragma once

#include "L2Rib/Plugin/Loader.h"

extern "C" {

// Which interface this plug-in was built for: asked before anything else of it is called.
[[gnu::used, gnu::visibility("default")]] inline std::uint32_t l2ribPluginInterface() {
    return L2Rib::Plugin::interfaceNumber;
}

[[gnu::visibility("default")]] void l2ribPluginInit(const Quil::Ptr<L2Rib::Plugin::Context>& context);

}  // extern "C"
