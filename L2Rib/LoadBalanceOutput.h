// LoadBalanceOutput.h: the table of the load-balance groups of all sources: written by the agent, read by consumers.
#pragma once

#include "L2Rib/LoadBalanceAndSource.h"
#include "L2Rib/LoadBalanceNamed.h"

namespace L2Rib {

class L2RIB_EXPORT LoadBalanceOutput final : public LoadBalanceNamed<LoadBalanceOutput, LoadBalanceAndSource> {
 public:
    static constexpr const char* fwkTypeName = "L2Rib::LoadBalanceOutput";
    explicit LoadBalanceOutput(Quil::Name name) : LoadBalanceNamed(std::move(name)) {}
    ~LoadBalanceOutput() override;
};

L2RIB_EXPORT Quil::Ptr<LoadBalanceOutput> loadBalanceOutputFactory(const Quil::Name& name);

}  // namespace L2Rib
