// EntryType.h: how a host came to be known, as a forwarding table prints it.
#pragma once

#include "Quil/Enum.h"

namespace Bridging {

enum EntryType : std::int32_t {
    entryTypeDynamic = 0,
    entryTypeStatic = 1,
    entryTypeRouter = 2,
    entryTypeRemote = 3,
    entryTypeRemoteStatic = 4,
};
constexpr auto fwkEnum(EntryType) {
    return Quil::enumTable<EntryType>("Bridging::EntryType", {{entryTypeDynamic, "entryTypeDynamic"},
                                                              {entryTypeStatic, "entryTypeStatic"},
                                                              {entryTypeRouter, "entryTypeRouter"},
                                                              {entryTypeRemote, "entryTypeRemote"},
                                                              {entryTypeRemoteStatic, "entryTypeRemoteStatic"}});
}
inline Quil::String stringValue(EntryType x) { return Quil::enumText(x); }
inline std::ostream& operator<<(std::ostream& out, EntryType x) { return out << stringValue(x); }
inline EntryType EntryTypeInstance(std::uint32_t x) { return Quil::enumInstance<EntryType>(x); }
inline EntryType EntryTypeInstance(const Quil::String& x) { return Quil::enumInstance<EntryType>(x); }

}  // namespace Bridging
