// Text.h: strings, names and the building of messages.
//
// cat() joins its arguments: text as it is, numbers in decimal, hex(n) in hexadecimal without a prefix, doubles in the
// shortest form that reads back alike, enumerators by name, values by their str(). Made for traces, exceptions and
// string forms; never on the path of a lookup or a write.
#pragma once

#include <charconv>
#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

namespace Quil {

using String = std::string;
using Name = std::string;  // of an entity; unique among its siblings

struct Hex {
    std::uint64_t value;
};
constexpr Hex hex(std::uint64_t value) { return {value}; }

template <class T>
concept Printable = requires(const T& value) {
    { value.str() } -> std::convertible_to<String>;
};
template <class T>
concept NamedEnum = std::is_enum_v<T> && requires(T value) {
    stringValue(value);
};

template <class T>
void appendNumber(String& out, T value, int base = 10) {
    char digits[72];
    const auto end = std::to_chars(digits, digits + sizeof digits, value, base);
    out.append(digits, end.ptr);
}

template <class T>
void append(String& out, const T& value) {
    if constexpr (std::is_same_v<T, char>) {
        out += value;
    } else if constexpr (std::is_convertible_v<const T&, std::string_view>) {
        out += std::string_view(value);
    } else if constexpr (std::is_same_v<T, Hex>) {
        appendNumber(out, value.value, 16);
    } else if constexpr (std::is_same_v<T, bool>) {
        out += value ? "true" : "false";
    } else if constexpr (NamedEnum<T>) {
        out += stringValue(value);
    } else if constexpr (Printable<T>) {
        out += value.str();
    } else if constexpr (std::is_floating_point_v<T>) {
        char digits[40];
        out.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
    } else {
        static_assert(std::is_integral_v<T>);
        appendNumber(out, value);
    }
}

template <class... T>
String cat(const T&... parts) {
    String out;
    (append(out, parts), ...);
    return out;
}

// Whole of the text as a number; false when it is anything else or does not fit.
template <class T>
bool parseNumber(std::string_view text, T& value) {
    const auto end = std::from_chars(text.data(), text.data() + text.size(), value);
    return !text.empty() && end.ec == std::errc() && end.ptr == text.data() + text.size();
}

}  // namespace Quil
