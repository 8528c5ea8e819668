#include "L2Rib/Debug/DebugL2RibClientSm.h"

#include "Quil/Trace.h"

namespace L2Rib::Debug {
namespace {

void traceSignature(const char* signature, const Bridging::MacVlanPair& key) {
    static Quil::Trace& handle = Quil::Trace::handler("L2Rib::Debug::DebugL2RibClientSm");
    handle.log(9, [&] { return Quil::cat(signature, " ( ", key, " )"); });
}

}  // namespace

DebugL2RibClientSm::DebugL2RibClientSm(Quil::String name, Quil::Ptr<Plugin::Context> pluginContext)
    : L2RibClientSm(std::move(name), std::move(pluginContext)) {}
DebugL2RibClientSm::~DebugL2RibClientSm() = default;

void DebugL2RibClientSm::doAddHost(const Bridging::MacVlanPair& key) {
    traceSignature("virtual void L2Rib::Debug::DebugL2RibClientSm::doAddHost(const Bridging::MacVlanPair&)", key);
    myHostColl_[key] = true;
}

void DebugL2RibClientSm::doUpdateHost(const Bridging::MacVlanPair& key) {
    traceSignature("virtual void L2Rib::Debug::DebugL2RibClientSm::doUpdateHost(const Bridging::MacVlanPair&)", key);
    myHostUpdateColl_[key] = true;
}

void DebugL2RibClientSm::doRemoveHost(const Bridging::MacVlanPair& key) {
    traceSignature("virtual void L2Rib::Debug::DebugL2RibClientSm::doRemoveHost(const Bridging::MacVlanPair&)", key);
    myHostColl_.erase(key);
}

Quil::Ptr<DebugL2RibClientSm> debugL2RibClientSmFactory(const Quil::String& name,
                                                        const Quil::Ptr<Plugin::Context>& pluginContext) {
    return Quil::makePtr<DebugL2RibClientSm>(name, pluginContext);
}

}  // namespace L2Rib::Debug
