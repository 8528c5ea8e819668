// FieldList.h: the one declaration of a composite value, from which its services are made.
//
// A value type names itself and its fields, in order, once:
//   static constexpr auto fwkFields() {
//       return Quil::fieldList("L2Rib::ObjTuple", Quil::field("objId", &ObjTuple::objId_), ...);
//   }
// Equality, ordering, operator!, the value text and its parser (Value.h), and the attribute-log form (AttrLog.h)
// follow from it; a type overrides only what differs.
#pragma once

#include <tuple>
#include <utility>

#include "Quil/Exception.h"

namespace Quil {

template <class T, class M>
struct Field {
    using Type = M;
    const char* name;
    M T::*member;
};

template <class... F>
struct FieldList {
    const char* typeName;  // with its namespace
    std::tuple<F...> fields;
};

template <class T, class M>
constexpr Field<T, M> field(const char* name, M T::*member) {
    return {name, member};
}

template <class... F>
constexpr FieldList<F...> fieldList(const char* typeName, F... fields) {
    return {typeName, {fields...}};
}

template <class T>
concept Composite = requires {
    T::fwkFields();
};

template <Composite T, class F>
constexpr void forEachField(F&& visit) {
    constexpr auto list = T::fwkFields();
    std::apply([&](const auto&... f) { (visit(f), ...); }, list.fields);
}

// Runs the reading of one field; a range error leaves it under the field's name.
template <class F>
void atField(const char* name, F&& read) {
    try {
        read();
    } catch (const RangeException& error) {
        throw error.inside(name);
    }
}

}  // namespace Quil
