// SourceJson.h: sources as JSON: what "l2rib table dump" writes and "l2rib-source file" reads. docs/tools.md has the
// format.
#pragma once

#include <vector>

#include "Bridging/VlanId.h"
#include "L2Rib/Dest.h"
#include "L2Rib/FloodSet.h"
#include "L2Rib/Host.h"
#include "L2Rib/Label.h"
#include "L2Rib/LoadBalance.h"
#include "L2Rib/Source.h"
#include "common/JsonObject.h"
#include "common/Names.h"

namespace Apps {

struct FloodRow {
    Bridging::VlanId vlanId{1};
    Lanx::EthAddr mac;
    L2Rib::FloodSetType type = L2Rib::floodSetTypeAll;
    std::vector<L2Rib::Dest> dests;  // with key 0
};

struct SourceContents {
    Quil::Name name;                           // empty: to be chosen
    L2Rib::Source source = L2Rib::sourceNone;  // none: not known
    std::vector<L2Rib::Host> hosts;            // without a time of the last move, that is not a number
    std::vector<L2Rib::LoadBalance> loadBalances;
    std::vector<L2Rib::Label> labels;
    std::vector<L2Rib::Dest> dests;
    std::vector<FloodRow> floodSets;
};

// Raises the range exception, with the place, for what is not in the format. Interfaces are entered into names.
std::vector<SourceContents> sourcesOf(const Json& json, InterfaceNames& names);
Json jsonOf(const std::vector<SourceContents>& sources, const InterfaceNames& names);

// The host's destination: {"type":"interface","name":"p1"}, {"type":"vtep","address":"10.0.0.2"}, {"type":"cpu"}.
Json jsonOf(const L2Rib::CiDest& dest, const InterfaceNames& names);
Json jsonOf(const L2Rib::Dest& dest, const InterfaceNames& names);

}  // namespace Apps
