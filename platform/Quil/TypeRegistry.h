// TypeRegistry.h: types by name. Creates an entity from its type name and constructor arguments, and lists, reads and
// sets attributes by name, all as text; knows the fields of value types.
//
// A type declares itself once:
//   static void fwkDeclare(Quil::TypeBuilder<ObjTupleManager>& type) {
//       type.name("L2Rib::ObjTupleManager").creator<TableType, U64, U64>(&objTupleManagerFactory)
//           .attribute("current", &ObjTupleManager::current, &ObjTupleManager::currentIs);
//   }
// and is entered with registerType<ObjTupleManager>() (values: registerValue<ObjTuple>()) in one source file.
#pragma once

#include <functional>
#include <map>
#include <vector>

#include "Quil/AttrLog.h"
#include "Quil/Entity.h"
#include "Quil/Value.h"

namespace Quil {

struct Attribute {
    String name;
    std::function<String(const Entity&)> get;         // the value text
    std::function<void(Entity&, const String&)> set;  // empty for a read-only attribute

    // The wire form, as entities are replicated; empty functions where an attribute is not: of what is derived,
    // nothing.
    using Bytes = std::vector<std::uint8_t>;
    std::function<void(const Entity&, AttrLogWriter&)> write;  // of a scalar
    std::function<void(Entity&, AttrLogReader&)> read;
    // Of a collection: visits key, value (empty for children) and child (null for members).
    using Visit = std::function<void(const Bytes& key, const Bytes& value, const Entity* child)>;
    std::function<void(const Entity&, const Visit&)> forEach;
    std::function<void(Entity&, AttrLogReader& key, AttrLogReader& value)> keyIs;
    std::function<void(Entity&, AttrLogReader& key)> keyDel;
    std::function<void(Entity&)> delAll;
    // Of a collection of values: the member's key as it is stored, which may be other bytes for an equal key; the key
    // itself when there is no such member.
    std::function<Bytes(const Entity&, AttrLogReader& key)> storedKey;
    std::function<Ptr<Entity>(Entity&, AttrLogReader& key)> child;  // null when there is none
};

class L2RIB_EXPORT Type {
 public:
    enum class Kind { value, entity };
    Kind kind = Kind::entity;
    String name;
    std::vector<Attribute> attributes;                              // of an entity
    std::vector<String> fields;                                     // of a value, in order
    std::function<Ptr<Entity>(const std::vector<String>&)> create;  // empty when the type cannot be made by name
    std::function<String(const String&)> reprint;                   // of a value: parses a text and prints it again

    // Raises the range exception when there is no such attribute.
    const Attribute& attribute(std::string_view attributeName) const;
};

class L2RIB_EXPORT TypeRegistry {
 public:
    static TypeRegistry& instance();
    const Type& add(const Type& type);
    const Type* find(const String& name) const;
    std::vector<String> names() const;
    // Raises the range exception for an unknown type or a wrong number of arguments.
    Ptr<Entity> create(const String& typeName, const std::vector<String>& arguments) const;

 private:
    std::map<String, Type> types_;
};

// An attribute that is text of its own kind: shown as it is, not in quotes.
struct RawText {
    String text;
    void fwkAppendStrep(String& out) const { out += text; }
};

template <class T>
String textOf(const T& value) {
    String out;
    appendStrep(out, value);
    return out;
}

// "{key: value, ...}" of a map.
template <class Map>
RawText mapText(const Map& map) {
    String out = "{";
    for (const auto& [key, value] : map) out += cat(out.size() > 1 ? ", " : "", textOf(key), ": ", textOf(value));
    return {out + "}"};
}

// "{key, ...}" of a map.
template <class Map>
RawText keysText(const Map& map) {
    String out = "{";
    for (const auto& [key, unused] : map) out += cat(out.size() > 1 ? ", " : "", textOf(key));
    return {out + "}"};
}

template <class T>
T valueOf(const String& text) {
    if constexpr (std::is_same_v<T, String>) {
        T value = text;  // bare, or in quotes as it is shown
        if (text.starts_with('\'')) parseValue(text, value);
        return value;
    } else {
        T value{};
        parseValue(text, value);
        return value;
    }
}

template <class E>
class TypeBuilder {
 public:
    TypeBuilder& name(const char* typeName) {
        type_.name = typeName;
        return *this;
    }
    template <class... Args, class F>
    TypeBuilder& creator(F make) {
        type_.create = [make, typeName = type_.name](const std::vector<String>& args) {
            if (args.size() != sizeof...(Args)) {
                throw RangeException(cat(typeName, " takes ", sizeof...(Args), " arguments, not ", args.size()));
            }
            return invoke<Args...>(make, args, std::index_sequence_for<Args...>());
        };
        return *this;
    }
    template <class Get>
    TypeBuilder& attribute(String attributeName, Get get) {
        Attribute a;
        a.name = std::move(attributeName);
        a.get = getter(get);
        type_.attributes.push_back(std::move(a));
        return *this;
    }
    template <class Get, class V>
    TypeBuilder& attribute(String attributeName, Get get, void (E::*set)(V)) {
        using Value = std::decay_t<V>;
        Attribute a;
        a.name = std::move(attributeName);
        a.get = getter(get);
        a.set = [set](Entity& entity, const String& text) { (static_cast<E&>(entity).*set)(valueOf<Value>(text)); };
        a.write = [get](const Entity& entity, AttrLogWriter& log) {
            log.write<Value>(std::invoke(get, static_cast<const E&>(entity)));
        };
        a.read = [set](Entity& entity, AttrLogReader& log) { (static_cast<E&>(entity).*set)(log.getLast<Value>()); };
        type_.attributes.push_back(std::move(a));
        return *this;
    }
    // A collection of values: get returns a map from key to value.
    template <class Get, class Is, class Del>
    TypeBuilder& members(String attributeName, Get get, Is is, Del del, void (E::*delAll)()) {
        using Map = std::decay_t<std::invoke_result_t<Get, const E&>>;
        using Key = typename Map::key_type;
        using Value = typename Map::mapped_type;
        Attribute a = collection(std::move(attributeName), del, delAll, std::type_identity<Key>());
        a.get = [get](const Entity& entity) { return textOf(mapText(get(static_cast<const E&>(entity)))); };
        a.forEach = [get](const Entity& entity, const Attribute::Visit& visit) {
            for (const auto& [key, value] : get(static_cast<const E&>(entity))) {
                visit(bytesOf(key), bytesOf(value), nullptr);
            }
        };
        a.keyIs = [is](Entity& entity, AttrLogReader& key, AttrLogReader& value) {
            const Key wanted = key.getLast<Key>();
            std::invoke(is, static_cast<E&>(entity), wanted, value.getLast<Value>());
        };
        a.storedKey = [get](const Entity& entity, AttrLogReader& key) {
            const Key wanted = key.getLast<Key>();
            const Map& all = get(static_cast<const E&>(entity));
            const auto found = all.find(wanted);
            return bytesOf(found == all.end() ? wanted : found->first);
        };
        type_.attributes.push_back(std::move(a));
        return *this;
    }
    // A collection of child entities: get returns a map from key to child.
    template <class Get, class Is, class Del>
    TypeBuilder& children(String attributeName, Get get, Is is, Del del, void (E::*delAll)()) {
        using Map = std::decay_t<std::invoke_result_t<Get, const E&>>;
        using Key = typename Map::key_type;
        Attribute a = collection(std::move(attributeName), del, delAll, std::type_identity<Key>());
        a.get = [get](const Entity& entity) { return textOf(keysText(get(static_cast<const E&>(entity)))); };
        a.forEach = [get](const Entity& entity, const Attribute::Visit& visit) {
            for (const auto& [key, child] : get(static_cast<const E&>(entity))) visit(bytesOf(key), {}, child.get());
        };
        a.keyIs = [is](Entity& entity, AttrLogReader& key, AttrLogReader& value) {
            if (!value.atEnd()) throw RangeException("a child has no value");
            std::invoke(is, static_cast<E&>(entity), key.getLast<Key>());
        };
        a.child = [get](Entity& entity, AttrLogReader& key) -> Ptr<Entity> {
            const Map& all = get(static_cast<const E&>(entity));
            const auto found = all.find(key.getLast<Key>());
            return found == all.end() ? Ptr<Entity>() : Ptr<Entity>(found->second);
        };
        type_.attributes.push_back(std::move(a));
        return *this;
    }
    Type take() { return std::move(type_); }

 private:
    template <class Get>
    static std::function<String(const Entity&)> getter(Get get) {
        return [get](const Entity& entity) { return textOf(std::invoke(get, static_cast<const E&>(entity))); };
    }
    template <class T>
    static Attribute::Bytes bytesOf(const T& value) {
        AttrLogWriter log;
        log.write(value);
        return log.bytes();
    }
    template <class Key, class Del>
    static Attribute collection(String attributeName, Del del, void (E::*delAll)(), std::type_identity<Key>) {
        Attribute a;
        a.name = std::move(attributeName);
        a.keyDel = [del](Entity& entity, AttrLogReader& key) {
            std::invoke(del, static_cast<E&>(entity), key.getLast<Key>());
        };
        a.delAll = [delAll](Entity& entity) { (static_cast<E&>(entity).*delAll)(); };
        return a;
    }
    template <class... Args, class F, std::size_t... I>
    static Ptr<Entity> invoke(F make, const std::vector<String>& args, std::index_sequence<I...>) {
        return make(valueOf<Args>(args[I])...);
    }
    Type type_;
};

template <class E>
const Type& registerType() {
    TypeBuilder<E> builder;
    E::fwkDeclare(builder);
    return TypeRegistry::instance().add(builder.take());
}

// A value of one number registers under its own name, with the field "value".
template <class T>
const Type& registerValue() {
    Type type;
    type.kind = Type::Kind::value;
    if constexpr (Composite<T>) {
        type.name = T::fwkFields().typeName;
        forEachField<T>([&](const auto& f) { type.fields.emplace_back(f.name); });
        if constexpr (requires { T::fwkOperations; }) {
            for (const char* operation : T::fwkOperations) type.fields.emplace_back(operation);
        }
    } else {
        type.name = T::fwkName;
        type.fields.emplace_back("value");
    }
    type.reprint = [](const String& text) { return textOf(valueOf<T>(text)); };
    return TypeRegistry::instance().add(type);
}

// The registered description of a type; the base class Entity has an empty one.
template <class E>
const Type& typeOf() {
    if constexpr (std::is_same_v<E, Entity>) {
        static const Type base{Type::Kind::entity, "Quil::Entity", {}, {}, {}, {}};
        return base;
    } else {
        static const Type& type = registerType<E>();
        return type;
    }
}

}  // namespace Quil
