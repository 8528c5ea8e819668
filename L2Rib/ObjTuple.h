// ObjTuple.h: the pointer from one table's object to another's: a table and an identifier in it.
//
// The default tuple (0, tableTypeInvalid) points at nothing.
#pragma once

#include "L2Rib/Constants.h"
#include "L2Rib/TableType.h"

namespace L2Rib {

class L2RIB_EXPORT ObjTuple : public Quil::Value<ObjTuple> {
 public:
    constexpr ObjTuple() = default;
    constexpr ObjTuple(ObjId objId, TableType tableType) : objId_(objId), tableType_(tableType) {}
    explicit ObjTuple(const Quil::String& text) { Quil::parseValue(text, *this); }

    constexpr ObjId objId() const { return objId_; }
    constexpr TableType tableType() const { return tableType_; }

    // The identifier as that of its table; asking for another table's stops the process.
    LoadBalanceId lbId() const;
    LabelId labelId() const;
    DestId destId() const;
    // A table other than the invalid one, and an identifier that can be allocated.
    constexpr bool isValid() const {
        return tableType_ != tableTypeInvalid && objId_.value() - 1 < Constants::objIdLast.value();
    }

    // One-at-a-time over 20 bytes: each half of the identifier widened to 64 bits, then the table type. The widening is
    // part of the result, so that tables hashed by different builds agree.
    constexpr std::uint32_t hash() const {
        const std::uint64_t id = objId_.value();
        return Verro::OneAtATime()
            .add(id & 0xffffffffu)
            .add(id >> 32)
            .add(static_cast<std::uint32_t>(tableType_))
            .finish();
    }
    Quil::String str() const { return strInternal(true); }  // "(Dest 7)"
    Quil::String strNoTrailParen() const { return strInternal(false); }
    Quil::String strInternal(bool includeTrailingParen) const;

    static constexpr auto fwkFields() {
        return Quil::fieldList("L2Rib::ObjTuple", Quil::field("objId", &ObjTuple::objId_),
                               Quil::field("tableType", &ObjTuple::tableType_));
    }

 private:
    ObjId objId_;
    TableType tableType_ = tableTypeInvalid;
};
static_assert(sizeof(ObjTuple) == 12 && alignof(ObjTuple) == 4);

// Whether it points at a group, a label or a destination.
constexpr bool isObject(const ObjTuple& tuple) { return tuple.isValid() && tuple.tableType() <= tableTypeDest; }

inline ObjTuple objTupleOf(LoadBalanceId id) { return {ObjId(id.value()), tableTypeLoadBalance}; }
inline ObjTuple objTupleOf(LabelId id) { return {ObjId(id.value()), tableTypeLabel}; }
inline ObjTuple objTupleOf(DestId id) { return {ObjId(id.value()), tableTypeDest}; }

}  // namespace L2Rib
