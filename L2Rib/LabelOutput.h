// LabelOutput.h: the table of the label objects of all sources: written by the agent, read by consumers.
#pragma once

#include "L2Rib/LabelAndSource.h"
#include "L2Rib/LabelNamed.h"

namespace L2Rib {

class L2RIB_EXPORT LabelOutput final : public LabelNamed<LabelOutput, LabelAndSource> {
 public:
    static constexpr const char* fwkTypeName = "L2Rib::LabelOutput";
    explicit LabelOutput(Quil::Name name) : LabelNamed(std::move(name)) {}
    ~LabelOutput() override;
};

L2RIB_EXPORT Quil::Ptr<LabelOutput> labelOutputFactory(const Quil::Name& name);

}  // namespace L2Rib
