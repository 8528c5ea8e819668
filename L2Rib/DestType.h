// DestType.h: the kinds of destination. The default is the interface, not an invalid marker.
#pragma once

#include "Quil/Enum.h"

namespace L2Rib {

enum DestType : std::int32_t {
    destTypeIntf = 0,
    destTypeVxlan = 1,
    destTypeMpls = 2,
    destTypeTunnel = 3,
    destTypeCpu = 4,
};
constexpr auto fwkEnum(DestType) {
    return Quil::enumTable<DestType>("L2Rib::DestType", {{destTypeIntf, "destTypeIntf"},
                                                         {destTypeVxlan, "destTypeVxlan"},
                                                         {destTypeMpls, "destTypeMpls"},
                                                         {destTypeTunnel, "destTypeTunnel"},
                                                         {destTypeCpu, "destTypeCpu"}});
}
inline Quil::String stringValue(DestType x) { return Quil::enumText(x); }
inline std::ostream& operator<<(std::ostream& out, DestType x) { return out << stringValue(x); }
// The enumerator of this number or name; the range exception when there is none.
inline DestType DestTypeInstance(std::uint32_t x) { return Quil::enumInstance<DestType>(x); }
inline DestType DestTypeInstance(const Quil::String& x) { return Quil::enumInstance<DestType>(x); }

}  // namespace L2Rib
