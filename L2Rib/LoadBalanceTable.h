// LoadBalanceTable.h: the table of the load-balance groups of one source: written by the source, read by the agent.
#pragma once

#include "L2Rib/LoadBalance.h"
#include "L2Rib/LoadBalanceNamed.h"

namespace L2Rib {

class L2RIB_EXPORT LoadBalanceTable final : public LoadBalanceNamed<LoadBalanceTable, LoadBalance> {
 public:
    static constexpr const char* fwkTypeName = "L2Rib::LoadBalanceTable";
    explicit LoadBalanceTable(Quil::Name name) : LoadBalanceNamed(std::move(name)) {}
    ~LoadBalanceTable() override;
};

L2RIB_EXPORT Quil::Ptr<LoadBalanceTable> loadBalanceTableFactory(const Quil::Name& name);

}  // namespace L2Rib
