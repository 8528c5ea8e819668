// Constants.h: the named constants of the object space, as read-only attributes of a value without fields.
//
// Identifiers: 0 is no object, objIdFirst to objIdLast can be allocated, the values above are reserved; the two highest
// are markers.
#pragma once

#include "L2Rib/ObjId.h"

namespace L2Rib {

struct Constants : Quil::Value<Constants> {
    static constexpr std::uint32_t seqNoForStaticMacs = 1;
    static constexpr ObjId objIdInvalid{0};
    static constexpr ObjId objIdFirst{1};
    static constexpr ObjId objIdLast{0xFFFFFFFFFFFF0000ULL};
    static constexpr ObjId objIdNotUsed{0xFFFFFFFFFFFFFFFEULL};      // a slot that holds no object
    static constexpr ObjId objIdNotInMemtab{0xFFFFFFFFFFFFFFFFULL};  // an object without a row in shared memory
    static constexpr std::uint16_t destStorageSize = 12;             // bytes of variant storage in a destination

    static constexpr auto fwkFields() { return Quil::fieldList("L2Rib::Constants"); }
};

}  // namespace L2Rib
