// Ops.h: what the engine needs to know of a key and a value, in one bundle.
#pragma once

#include <functional>

#include "Quil/Text.h"

namespace Memtab {

// The key's own hash, as a function object.
template <class Key, auto hashMember>
struct Hash {
    std::uint32_t operator()(const Key& key) const { return std::invoke(hashMember, key); }
};

// Key: hash(), ==, <, str(). Value: fwkKey(), str(), trivially copyable, a multiple of 4 bytes.
template <class KeyType, class ValueType, class HashType = Hash<KeyType, &KeyType::hash>>
struct Ops {
    using Key = KeyType;
    using Value = ValueType;
    static std::uint32_t hash(const Key& key) { return HashType()(key); }
    static bool less(const Key& a, const Key& b) { return a < b; }
    static bool equal(const Key& a, const Key& b) { return a == b; }
    static Quil::String text(const Key& key) { return Quil::cat(key); }
    static Quil::String text(const Value& value) { return value.str(); }
};

}  // namespace Memtab
