// The eight tables' homes: destructors and factories.
#include "L2Rib/DestOutput.h"
#include "L2Rib/DestTable.h"
#include "L2Rib/HostInput.h"
#include "L2Rib/HostOutput.h"
#include "L2Rib/LabelOutput.h"
#include "L2Rib/LabelTable.h"
#include "L2Rib/LoadBalanceOutput.h"
#include "L2Rib/LoadBalanceTable.h"

namespace L2Rib {

HostInput::~HostInput() = default;
Quil::Ptr<HostInput> hostInputFactory(const Quil::Name& name) { return Quil::makePtr<HostInput>(name); }

HostOutput::~HostOutput() = default;
Quil::Ptr<HostOutput> hostOutputFactory(const Quil::Name& name) { return Quil::makePtr<HostOutput>(name); }

DestTable::~DestTable() = default;
Quil::Ptr<DestTable> destTableFactory(const Quil::Name& name) { return Quil::makePtr<DestTable>(name); }

DestOutput::~DestOutput() = default;
Quil::Ptr<DestOutput> destOutputFactory(const Quil::Name& name) { return Quil::makePtr<DestOutput>(name); }

LabelTable::~LabelTable() = default;
Quil::Ptr<LabelTable> labelTableFactory(const Quil::Name& name) { return Quil::makePtr<LabelTable>(name); }

LabelOutput::~LabelOutput() = default;
Quil::Ptr<LabelOutput> labelOutputFactory(const Quil::Name& name) { return Quil::makePtr<LabelOutput>(name); }

LoadBalanceTable::~LoadBalanceTable() = default;
Quil::Ptr<LoadBalanceTable> loadBalanceTableFactory(const Quil::Name& name) {
    return Quil::makePtr<LoadBalanceTable>(name);
}

LoadBalanceOutput::~LoadBalanceOutput() = default;
Quil::Ptr<LoadBalanceOutput> loadBalanceOutputFactory(const Quil::Name& name) {
    return Quil::makePtr<LoadBalanceOutput>(name);
}

}  // namespace L2Rib
