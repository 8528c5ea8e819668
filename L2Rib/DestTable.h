// DestTable.h: the table of the destinations of one source: written by the source, read by the agent.
#pragma once

#include "L2Rib/Dest.h"
#include "L2Rib/DestNamed.h"

namespace L2Rib {

class L2RIB_EXPORT DestTable final : public DestNamed<DestTable, Dest> {
 public:
    static constexpr const char* fwkTypeName = "L2Rib::DestTable";
    explicit DestTable(Quil::Name name) : DestNamed(std::move(name)) {}
    ~DestTable() override;
};

L2RIB_EXPORT Quil::Ptr<DestTable> destTableFactory(const Quil::Name& name);

}  // namespace L2Rib
