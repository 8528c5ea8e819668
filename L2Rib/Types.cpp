#include "L2Rib/Types.h"

#include "L2Rib/L2Rib.h"

namespace L2Rib {
namespace {

template <class... Values>
void registerValues() {
    (Quil::registerValue<Values>(), ...);
}
template <class... Entities>
void registerEntities() {
    (Quil::typeOf<Entities>(), ...);
}

}  // namespace

void registerTypes() {
    registerValues<Constants, ObjTuple, ObjTupleAndSource, DestDataIntf, DestDataVxlan, DestDataMpls, DestDataTunnel,
                   Dest, CiDest, Host, HostAndSource, Label, LabelAndSource, LoadBalance, LoadBalanceAndSource,
                   DestAndSource, TableInfo>();
    registerEntities<HostInput, HostOutput, DestTable, DestOutput, LabelTable, LabelOutput, LoadBalanceTable,
                     LoadBalanceOutput, ObjTupleManager>();
}

}  // namespace L2Rib
