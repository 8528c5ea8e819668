// Value.h: what every value type of the framework offers, made from its field list (FieldList.h).
//
//   class ObjTuple : public Quil::Value<ObjTuple> { ... static constexpr auto fwkFields(); ... };
//
// gives ==, < (fields in declaration order), ! (equal to the default value), valueToStrep() and operator<< (the value
// text), and a parser of that text. The base is empty and distinct for each type, so it never grows a record.
//
// The value text: "Value('L2Rib::ObjTuple', ** {'objId': 7, 'tableType': tableTypeDest})". Numbers are decimal,
// enumerators bare, doubles in their shortest form that reads back alike, strings in single quotes.
#pragma once

#include <ostream>

#include "Quil/Enum.h"
#include "Quil/FieldList.h"
#include "Quil/Flat.h"

namespace Quil {

template <class T>
struct Value {};

template <class T>
concept FwkValue = Composite<T> && std::is_base_of_v<Value<T>, T>;

template <FwkValue T>
constexpr bool operator==(const T& a, const T& b) {
    constexpr auto list = T::fwkFields();
    return std::apply([&](const auto&... f) { return ((a.*f.member == b.*f.member) && ...); }, list.fields);
}

template <FwkValue T>
constexpr bool operator<(const T& a, const T& b) {
    int order = 0;
    const auto compare = [&](const auto& f) {
        if (order == 0) order = a.*f.member < b.*f.member ? -1 : b.*f.member < a.*f.member ? 1 : 0;
    };
    forEachField<T>(compare);
    return order < 0;
}

template <FwkValue T>
constexpr bool operator!(const T& value) {
    return value == T();
}

// The text being read. Every failure is a range exception that says what was expected and what stands there.
class L2RIB_EXPORT StrepCursor {
 public:
    explicit StrepCursor(std::string_view text) : rest_(text) {}
    void expect(std::string_view text);
    bool startsWith(std::string_view text) const { return rest_.starts_with(text); }
    // The bare word up to the next ',', '}', ')' or the end.
    std::string_view word();
    String quoted();
    void expectEnd() const;

 private:
    std::string_view rest_;
};

template <class T>
void appendStrep(String& out, const T& value) {
    if constexpr (requires { value.fwkAppendStrep(out); }) {
        value.fwkAppendStrep(out);
    } else if constexpr (Composite<T>) {
        append(out, "Value('");
        append(out, T::fwkFields().typeName);
        append(out, "', ** {");
        const char* separator = "";
        forEachField<T>([&](const auto& f) {
            out += std::exchange(separator, ", ");
            out += cat("'", f.name, "': ");
            appendStrep(out, value.*f.member);
        });
        append(out, "})");
    } else if constexpr (requires { typename T::Number; }) {
        append(out, static_cast<typename T::Number>(value));
    } else if constexpr (std::is_same_v<T, String>) {
        out += '\'';
        for (const char c : value) out += c == '\'' || c == '\\' ? cat('\\', c) : String(1, c);
        out += '\'';
    } else {
        append(out, value);
    }
}

template <class T>
void parseStrep(StrepCursor& cursor, T& value) {
    if constexpr (requires { value.fwkParseStrep(cursor); }) {
        value.fwkParseStrep(cursor);
    } else if constexpr (Composite<T>) {
        cursor.expect(cat("Value('", T::fwkFields().typeName, "', ** {"));
        const char* separator = "";
        forEachField<T>([&](const auto& f) {
            cursor.expect(cat(std::exchange(separator, ", "), "'", f.name, "': "));
            atField(f.name, [&] { parseStrep(cursor, value.*f.member); });
        });
        cursor.expect("})");
    } else if constexpr (std::is_same_v<T, String>) {
        value = cursor.quoted();
    } else if constexpr (std::is_same_v<T, bool>) {
        const auto word = cursor.word();
        if (word != "true" && word != "false") throw RangeException(cat("'", word, "' is neither true nor false"));
        value = word == "true";
    } else if constexpr (FwkEnum<T>) {
        const auto word = cursor.word();
        std::underlying_type_t<T> number{};
        value = parseNumber(word, number) ? static_cast<T>(number) : enumInstance<T>(word);
    } else if constexpr (requires { typename T::Number; }) {
        typename T::Number number{};
        parseStrep(cursor, number);
        value = number;
    } else {
        const auto word = cursor.word();
        if (!parseNumber(word, value)) throw RangeException(cat("'", word, "' is not a number of this type"));
    }
}

// The value text of any value.
template <class T>
requires(Composite<T> || requires(const T& v, String& s) { v.fwkAppendStrep(s); }) String valueToStrep(const T& value) {
    String out;
    appendStrep(out, value);
    return out;
}

// Reads the whole text; this is what a value's constructor from a String does.
template <class T>
void parseValue(std::string_view text, T& value) {
    StrepCursor cursor(text);
    parseStrep(cursor, value);
    cursor.expectEnd();
}

template <FwkValue T>
std::ostream& operator<<(std::ostream& out, const T& value) {
    return out << valueToStrep(value);
}

}  // namespace Quil
