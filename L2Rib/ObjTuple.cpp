#include "L2Rib/ObjTuple.h"

#include "L2Rib/SchemaFiles.h"
#include "Quil/Assert.h"

namespace L2Rib {
namespace {

std::string_view prefix(TableType tableType) {
    switch (tableType) {
        case tableTypeLoadBalance:
            return "(LB";
        case tableTypeLabel:
            return "(Label";
        case tableTypeDest:
            return "(Dest";
        case tableTypeInvalid:
            return "(INVALID";
    }
    return "";  // a number that is no table, from a foreign or damaged record
}

}  // namespace

LoadBalanceId ObjTuple::lbId() const {
    Quil::assertThat(tableType_ == tableTypeLoadBalance, "tableType() == tableTypeLoadBalance_", SchemaFiles::values,
                     "L2Rib::LoadBalanceId L2Rib::ObjTuple::lbId() const");
    return LoadBalanceId(objId_.value());
}

LabelId ObjTuple::labelId() const {
    Quil::assertThat(tableType_ == tableTypeLabel, "tableType() == tableTypeLabel_", SchemaFiles::values,
                     "L2Rib::LabelId L2Rib::ObjTuple::labelId() const");
    return LabelId(objId_.value());
}

DestId ObjTuple::destId() const {
    Quil::assertThat(tableType_ == tableTypeDest, "tableType() == tableTypeDest_", SchemaFiles::values,
                     "L2Rib::DestId L2Rib::ObjTuple::destId() const");
    return DestId(objId_.value());
}

Quil::String ObjTuple::strInternal(bool includeTrailingParen) const {
    const Quil::String id = objId_ == Constants::objIdInvalid ? "INVALID" : objId_.str();
    return Quil::cat(prefix(tableType_), " ", id, includeTrailingParen ? ")" : "");
}

}  // namespace L2Rib
