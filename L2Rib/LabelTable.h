// LabelTable.h: the table of the label objects of one source: written by the source, read by the agent.
#pragma once

#include "L2Rib/Label.h"
#include "L2Rib/LabelNamed.h"

namespace L2Rib {

class L2RIB_EXPORT LabelTable final : public LabelNamed<LabelTable, Label> {
 public:
    static constexpr const char* fwkTypeName = "L2Rib::LabelTable";
    explicit LabelTable(Quil::Name name) : LabelNamed(std::move(name)) {}
    ~LabelTable() override;
};

L2RIB_EXPORT Quil::Ptr<LabelTable> labelTableFactory(const Quil::Name& name);

}  // namespace L2Rib
