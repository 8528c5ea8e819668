#include "L2Rib/ObjTupleSet.h"

#include <cstdio>
#include <cstdlib>

#include "L2Rib/SchemaFiles.h"
#include "Quil/Assert.h"

namespace L2Rib {
namespace {

[[noreturn]] void refuseText() {
    Quil::assertFail("!\"No String constructor for ObjTupleSet - has collection\"", SchemaFiles::values,
                     "L2Rib::ObjTupleSet::ObjTupleSet(const Quil::String&)");
}

}  // namespace

ObjTupleSet::ObjTupleSet(const Quil::String&) { refuseText(); }
void ObjTupleSet::fwkParseStrep(Quil::StrepCursor&) { refuseText(); }

void ObjTupleSet::fwkAppendStrep(Quil::String& out) const {
    out += "Value('L2Rib::ObjTupleSet', ** {'ot': {";
    const char* separator = "";
    for (const auto& [tuple, flag] : ot_) {
        out += std::exchange(separator, ", ");
        Quil::appendStrep(out, tuple);
        out += Quil::cat(": ", flag);
    }
    out += "}})";
}

void ObjTupleSet::fwkWrite(Quil::AttrLogWriter& log) const {
    if (ot_.contains(ObjTuple())) {
        std::fputs("Default key not supported in collection inside nominal\n", stderr);
        std::abort();
    }
    for (const auto& [tuple, flag] : ot_) {
        log.write(tuple);
        log.write(flag);
    }
    log.write(ObjTuple());
}

void ObjTupleSet::fwkRead(Quil::AttrLogReader& log) {
    ot_.clear();
    for (auto tuple = log.get<ObjTuple>(); !(tuple == ObjTuple()); log.read(tuple)) newOt(tuple, log.get<bool>());
}

}  // namespace L2Rib
