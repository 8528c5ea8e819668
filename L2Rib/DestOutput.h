// DestOutput.h: the table of the destinations of all sources: written by the agent, read by consumers.
#pragma once

#include "L2Rib/DestAndSource.h"
#include "L2Rib/DestNamed.h"

namespace L2Rib {

class L2RIB_EXPORT DestOutput final : public DestNamed<DestOutput, DestAndSource> {
 public:
    static constexpr const char* fwkTypeName = "L2Rib::DestOutput";
    explicit DestOutput(Quil::Name name) : DestNamed(std::move(name)) {}
    ~DestOutput() override;
};

L2RIB_EXPORT Quil::Ptr<DestOutput> destOutputFactory(const Quil::Name& name);

}  // namespace L2Rib
