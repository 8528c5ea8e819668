#include "L2Rib/Types.h"

#include "L2Rib/L2Rib.h"

namespace L2Rib {
namespace {

// The fields follow one another without a gap: with the sizes, this fixes the offset of each.
template <class T>
constexpr bool isPacked() {
    std::size_t size = 0;
    Quil::forEachField<T>([&]<class F>(const F&) { size += sizeof(typename F::Type); });
    return std::is_standard_layout_v<T> && std::is_trivially_copyable_v<T> && size == sizeof(T);
}
static_assert(isPacked<ObjTuple>() && isPacked<ObjTupleAndSource>() && isPacked<Dest>() && isPacked<DestAndSource>());
static_assert(isPacked<CiDest>() && isPacked<Host>() && isPacked<HostAndSource>());
static_assert(isPacked<Label>() && isPacked<LabelAndSource>());
static_assert(isPacked<LoadBalance>() && isPacked<LoadBalanceAndSource>());

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
    registerValues<ObjId, DestId, LabelId, LoadBalanceId, EcmpIndex, CiVtepIndex, Constants, SourceDecoder, ObjTuple,
                   ObjTupleAndSource, DestDataIntf, DestDataVxlan, DestDataMpls, DestDataTunnel, Dest, CiDest, Host,
                   HostAndSource, HostKeyAndSource, Label, LabelAndSource, LoadBalance, LoadBalanceAndSource,
                   DestAndSource, FloodSetTriple, TableInfo>();
    registerEntities<HostInput, HostOutput, DestTable, DestOutput, LabelTable, LabelOutput, LoadBalanceTable,
                     LoadBalanceOutput, ObjTupleManager, Plugin::Context, Plugin::Loader, L2RibClientSm, FloodSet,
                     VlanFloodSet, FloodSetOutput, SourceDirEntry, AgentSourceDir, PolicySmStatus, Config>();
}

}  // namespace L2Rib
