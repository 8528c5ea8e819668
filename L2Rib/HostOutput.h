// HostOutput.h: the table of the hosts of all sources, each with the source that won: written by the agent, read by
// consumers.
#pragma once

#include "L2Rib/HostAndSource.h"
#include "L2Rib/HostNamed.h"

namespace L2Rib {

class L2RIB_EXPORT HostOutput final : public HostNamed<HostOutput, HostAndSource> {
 public:
    static constexpr const char* fwkTypeName = "L2Rib::HostOutput";
    explicit HostOutput(Quil::Name name) : HostNamed(std::move(name)) {}
    ~HostOutput() override;
};

L2RIB_EXPORT Quil::Ptr<HostOutput> hostOutputFactory(const Quil::Name& name);

}  // namespace L2Rib
