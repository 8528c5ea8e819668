// Source.h: who says where a host is. Each source is one bit, so a set of sources is a mask of the same values.
#pragma once

#include "Quil/Enum.h"
#include "Quil/Value.h"

namespace L2Rib {

enum Source : std::uint32_t {
    sourceNone = 0,
    sourceBgp = 1,
    sourceVcs = 2,
    sourceVxlanStatic = 4,
    sourceLocalDynamic = 8,
    sourceLocalStatic = 16,
    sourceMlag = 32,
    sourceRouterMac = 64,
    sourceBgpEvpnMpls = 128,
    sourceMss = 256,
    sourceDot1x = 512,
    // The bits from 1024 to 0x08000000 stay free between the production sources and the test protocols.
    sourceTestProto1 = 0x10000000,
    sourceTestProto2 = 0x20000000,
    sourceTestProto3 = 0x40000000,
    sourceTestProto4 = 0x80000000,
    sourceAll = 0xFFFFFFFF,  // the full mask, not a further bit
};
constexpr auto fwkEnum(Source) {
    return Quil::enumTable<Source>("L2Rib::Source", {{sourceNone, "sourceNone"},
                                                     {sourceBgp, "sourceBgp"},
                                                     {sourceVcs, "sourceVcs"},
                                                     {sourceVxlanStatic, "sourceVxlanStatic"},
                                                     {sourceLocalDynamic, "sourceLocalDynamic"},
                                                     {sourceLocalStatic, "sourceLocalStatic"},
                                                     {sourceMlag, "sourceMlag"},
                                                     {sourceRouterMac, "sourceRouterMac"},
                                                     {sourceBgpEvpnMpls, "sourceBgpEvpnMpls"},
                                                     {sourceMss, "sourceMss"},
                                                     {sourceDot1x, "sourceDot1x"},
                                                     {sourceTestProto1, "sourceTestProto1"},
                                                     {sourceTestProto2, "sourceTestProto2"},
                                                     {sourceTestProto3, "sourceTestProto3"},
                                                     {sourceTestProto4, "sourceTestProto4"},
                                                     {sourceAll, "sourceAll"}});
}
inline Quil::String stringValue(Source x) { return Quil::enumText(x); }
inline std::ostream& operator<<(std::ostream& out, Source x) { return out << stringValue(x); }
// The enumerator of this number or name; the range exception when there is none.
inline Source SourceInstance(std::uint32_t x) { return Quil::enumInstance<Source>(x); }
inline Source SourceInstance(const Quil::String& x) { return Quil::enumInstance<Source>(x); }

// Turns a bare number into the enumeration, unchanged: a mask or a bit of a later release stays what it is.
struct SourceDecoder : Quil::Value<SourceDecoder> {
    static constexpr Source sourceFromEnum(std::uint32_t x) { return static_cast<Source>(x); }
    Quil::String str() const { return {}; }
    static constexpr auto fwkFields() { return Quil::fieldList("L2Rib::SourceDecoder"); }
};

}  // namespace L2Rib
