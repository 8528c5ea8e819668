// DebugL2RibClientSm.h: a client that remembers what it was told.
#pragma once

#include "L2Rib/L2RibClientSm.h"

namespace L2Rib::Debug {

class L2RIB_EXPORT DebugL2RibClientSm : public L2RibClientSm {
 public:
    using Hosts = std::unordered_map<Bridging::MacVlanPair, bool, HashOf<Bridging::MacVlanPair>>;

    DebugL2RibClientSm(Quil::String name, Quil::Ptr<Plugin::Context> pluginContext);
    ~DebugL2RibClientSm() override;

    const Hosts& myHostColl() const { return myHostColl_; }              // added and not removed
    const Hosts& myHostUpdateColl() const { return myHostUpdateColl_; }  // ever updated

    void doAddHost(const Bridging::MacVlanPair& key) override;
    void doUpdateHost(const Bridging::MacVlanPair& key) override;
    void doRemoveHost(const Bridging::MacVlanPair& key) override;

 private:
    Hosts myHostColl_;
    Hosts myHostUpdateColl_;
};

L2RIB_EXPORT Quil::Ptr<DebugL2RibClientSm> debugL2RibClientSmFactory(const Quil::String& name,
                                                                     const Quil::Ptr<Plugin::Context>& pluginContext);

}  // namespace L2Rib::Debug
