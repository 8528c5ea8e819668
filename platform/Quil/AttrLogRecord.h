// AttrLogRecord.h: one record of an attribute log: what became of one attribute of one entity of a tree.
//
// Wire      a 32-bit length of what follows; the path: a 16-bit number of steps, each a 16-bit attribute and a key; the
//           attribute (16 bits), the operation (8 bits), key and value. Keys and values are a 32-bit length and their
//           bytes. Network byte order. Attributes count from 1 in the order of declaration, derived ones included.
#pragma once

#include <optional>
#include <tuple>

#include "Quil/TypeRegistry.h"

namespace Quil {

struct L2RIB_EXPORT AttrLogRecord {
    using Bytes = std::vector<std::uint8_t>;
    enum Operation : std::uint8_t {
        set = 1,        // value: of a scalar
        keySet = 2,     // key, and value of a member; a child has none
        keyDelete = 3,  // key
        deleteAll = 4,
        synchronised = 5,  // of the root: everything there is has been sent
    };
    struct Step {  // from an entity to a child
        std::uint16_t attribute = 0;
        Bytes key;
        friend bool operator<(const Step& a, const Step& b) {
            return std::tie(a.attribute, a.key) < std::tie(b.attribute, b.key);
        }
    };
    using Path = std::vector<Step>;

    Path path;
    std::uint16_t attribute = 0;
    Operation operation = set;
    Bytes key, value;

    static constexpr std::uint32_t maxSize = 1 << 20;  // of a record without its length

    void appendTo(Bytes& out) const;
    // Of the bytes behind the length. Raises the range exception for what is no record.
    static AttrLogRecord parse(const std::uint8_t* bytes, std::size_t size);
    // The next record of a stream, at this place of what has come so far, and moves the place behind it. None while
    // the record is not whole; the range exception for one that is too long or malformed.
    static std::optional<AttrLogRecord> next(const Bytes& stream, std::size_t& at);

    // The key of a key record as the tree holds it now; as it came, when it does not.
    Bytes storedKey(const Entity& root) const;
    // Applies it through the setters of the tree. Raises the range exception, with nothing changed, for a record that
    // does not fit it.
    void applyTo(Entity& root) const;

 private:
    struct Place {
        Ptr<Entity> holder;  // of the child on the way
        Entity* entity;
    };
    Place placeIn(Entity& root) const;
};

// What a sink says first: the root's scalars from this identifier on are wanted.
struct L2RIB_EXPORT AttrLogHello {
    static constexpr std::uint32_t magicNumber = 0x5141544c;  // "QATL"
    static constexpr std::uint16_t currentVersion = 1;
    static constexpr std::size_t size = 8;
    std::uint32_t magic = magicNumber;
    std::uint16_t version = currentVersion;
    std::uint16_t startAt = 1;
};

}  // namespace Quil
