// TableType.h: the tables an object tuple can point into.
#pragma once

#include "Quil/Enum.h"

namespace L2Rib {

enum TableType : std::int32_t {
    tableTypeInvalid = 0,
    tableTypeLoadBalance = 1,
    tableTypeLabel = 2,
    tableTypeDest = 3,
};
constexpr auto fwkEnum(TableType) {
    return Quil::enumTable<TableType>("L2Rib::TableType", {{tableTypeInvalid, "tableTypeInvalid"},
                                                           {tableTypeLoadBalance, "tableTypeLoadBalance"},
                                                           {tableTypeLabel, "tableTypeLabel"},
                                                           {tableTypeDest, "tableTypeDest"}});
}
inline Quil::String stringValue(TableType x) { return Quil::enumText(x); }
inline std::ostream& operator<<(std::ostream& out, TableType x) { return out << stringValue(x); }
// The enumerator of this number or name; the range exception when there is none.
inline TableType TableTypeInstance(std::uint32_t x) { return Quil::enumInstance<TableType>(x); }
inline TableType TableTypeInstance(const Quil::String& x) { return Quil::enumInstance<TableType>(x); }

}  // namespace L2Rib
