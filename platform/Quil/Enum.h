// Enum.h: the services every enumeration has: its enumerators by number and by name.
//
// An enumeration states itself once, beside its declaration:
//   constexpr auto fwkEnum(Colour) { return Quil::enumTable("Paint::Colour", {{red, "red"}, {blue, "blue"}}); }
// and gives its services a name in its own namespace: stringValue(x), operator<<, ColourInstance(7),
// ColourInstance("red").
#pragma once

#include <array>
#include <ostream>

#include "Quil/Exception.h"

namespace Quil {

template <class E>
struct Enumerator {
    E value;
    const char* name;
};

template <class E, std::size_t N>
struct EnumTable {
    const char* typeName;
    std::array<Enumerator<E>, N> rows;
};

template <class E, std::size_t N>
constexpr EnumTable<E, N> enumTable(const char* typeName, const Enumerator<E> (&rows)[N]) {
    EnumTable<E, N> table{typeName, {}};
    for (std::size_t i = 0; i < N; ++i) table.rows[i] = rows[i];
    return table;
}

template <class E>
concept FwkEnum = std::is_enum_v<E> && requires(E value) {
    fwkEnum(value);
};

// The enumerator's name, or null for a number that is none.
template <FwkEnum E>
constexpr const char* enumName(E value) {
    constexpr auto table = fwkEnum(E{});
    for (const auto& row : table.rows) {
        if (row.value == value) return row.name;
    }
    return nullptr;
}

// The enumerator's name; any other number, as a record read from shared memory may hold, in decimal.
template <FwkEnum E>
String enumText(E value) {
    const char* name = enumName(value);
    return name ? String(name) : cat(static_cast<std::underlying_type_t<E>>(value));
}

template <FwkEnum E>
E enumInstance(std::uint32_t number) {
    const E value = static_cast<E>(number);
    if (!enumName(value)) throw RangeException(cat(fwkEnum(E{}).typeName, " has no enumerator ", number));
    return value;
}

template <FwkEnum E>
E enumInstance(std::string_view name) {
    constexpr auto table = fwkEnum(E{});
    for (const auto& row : table.rows) {
        if (name == row.name) return row.value;
    }
    throw RangeException(cat(table.typeName, " has no enumerator '", name, "'"));
}

}  // namespace Quil
