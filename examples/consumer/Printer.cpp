// A consumer: prints what it is told of the hosts that BGP and static VXLAN entries won.
#include <iostream>

#include "L2Rib/L2RibClientSm.h"
#include "L2Rib/Plugin/Plugin.h"

namespace {

class Printer : public L2Rib::L2RibClientSm {
 public:
    using L2RibClientSm::L2RibClientSm;
    void doAddHost(const Bridging::MacVlanPair& key) override { print("add", key); }
    void doUpdateHost(const Bridging::MacVlanPair& key) override { print("update", key); }
    void doRemoveHost(const Bridging::MacVlanPair& key) override { print("remove", key); }

 private:
    void print(const char* what, const Bridging::MacVlanPair& key) {
        std::cout << what << " " << key.str() << " " << stringValue(l2RibOutput()->host(key).source()) << std::endl;
    }
};

}  // namespace

void l2ribPluginInit(const Quil::Ptr<L2Rib::Plugin::Context>& context) {
    static const auto printer = Quil::makePtr<Printer>("printer", context);
    printer->sourceFilterIs(L2Rib::sourceBgp | L2Rib::sourceVxlanStatic);
}
