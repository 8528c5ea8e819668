// FloodSetType.h: what a flood set is for: all members at once, or any one of them.
#pragma once

#include "Quil/Enum.h"

namespace L2Rib {

enum FloodSetType : std::int32_t {
    floodSetTypeInvalid = 0,
    floodSetTypeAll = 1,
    floodSetTypeAny = 2,
};
constexpr auto fwkEnum(FloodSetType) {
    return Quil::enumTable<FloodSetType>("L2Rib::FloodSetType", {{floodSetTypeInvalid, "floodSetTypeInvalid"},
                                                                 {floodSetTypeAll, "floodSetTypeAll"},
                                                                 {floodSetTypeAny, "floodSetTypeAny"}});
}
inline Quil::String stringValue(FloodSetType x) { return Quil::enumText(x); }
inline std::ostream& operator<<(std::ostream& out, FloodSetType x) { return out << stringValue(x); }
// The enumerator of this number or name; the range exception when there is none.
inline FloodSetType FloodSetTypeInstance(std::uint32_t x) { return Quil::enumInstance<FloodSetType>(x); }
inline FloodSetType FloodSetTypeInstance(const Quil::String& x) { return Quil::enumInstance<FloodSetType>(x); }

}  // namespace L2Rib
