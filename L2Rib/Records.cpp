// The texts of the records.
#include "L2Rib/Host.h"
#include "L2Rib/LoadBalance.h"
#include "L2Rib/SchemaFiles.h"
#include "Quil/Assert.h"

namespace L2Rib {

Quil::String Host::stringValue() const {
    const Quil::String where = next_ == ObjTuple() ? Quil::cat(" ciDest ", ciDest_) : Quil::cat(" next ", next_);
    return Quil::cat("Host key: ", key_, " pref: ", preference_, " seq: ", seqNo_, " type ", entryType_, where);
}

namespace {

[[noreturn]] void refuseText() {
    Quil::assertFail("!\"No String constructor for LoadBalance - has collection\"", SchemaFiles::records,
                     "L2Rib::LoadBalance::LoadBalance(const Quil::String&)");
}

}  // namespace

LoadBalance::LoadBalance(const Quil::String&) { refuseText(); }
void LoadBalance::fwkParseStrep(Quil::StrepCursor&) { refuseText(); }

Quil::String LoadBalance::stringValue() const {
    Quil::String out = Quil::cat("LB key: ", key_);
    next_.forEach([&](std::uint32_t i, const ObjTuple& tuple) {
        if (!(tuple == ObjTuple())) out += Quil::cat(" ", i, ": ", tuple);
    });
    return out;
}

}  // namespace L2Rib
