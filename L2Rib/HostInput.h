// HostInput.h: the table of the hosts of one source: written by the source, read by the agent.
#pragma once

#include "L2Rib/Host.h"
#include "L2Rib/HostNamed.h"

namespace L2Rib {

class L2RIB_EXPORT HostInput final : public HostNamed<HostInput, Host> {
 public:
    static constexpr const char* fwkTypeName = "L2Rib::HostInput";
    explicit HostInput(Quil::Name name) : HostNamed(std::move(name)) {}
    ~HostInput() override;
};

L2RIB_EXPORT Quil::Ptr<HostInput> hostInputFactory(const Quil::Name& name);

}  // namespace L2Rib
