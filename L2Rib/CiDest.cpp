#include "L2Rib/CiDest.h"

#include "L2Rib/SchemaFiles.h"
#include "Quil/Assert.h"

namespace L2Rib {
namespace {

[[noreturn]] void refuseText() {
    Quil::assertFail("!\"No String constructor for CiDest - has collection\"", SchemaFiles::records,
                     "L2Rib::CiDest::CiDest(const Quil::String&)");
}

template <class T>
int threeWay(const T& a, const T& b) {
    return a < b ? -1 : b < a ? 1 : 0;
}

}  // namespace

CiDest::CiDest(const Quil::String&) : destType_(destTypeIntf) { refuseText(); }
void CiDest::fwkParseStrep(Quil::StrepCursor&) { refuseText(); }

std::uint32_t CiDest::hash() const {
    if (destType_ == destTypeIntf) return intf_.hash();
    if (destType_ == destTypeCpu) return 0;
    Quil::assertThat(destType_ == destTypeVxlan, "destType() == destTypeVxlan_", SchemaFiles::records,
                     "U32 L2Rib::CiDest::hash() const");
    vtepAddr_.checkCount();
    std::uint32_t hash = 0;
    vtepAddr_.forEach([&](std::uint32_t, const Lanx::IpGenAddr& addr) { hash ^= addr.ip6().hash(); });
    return hash;
}

int CiDest::cmp(const CiDest& other) const {
    if (destType_ != other.destType_) return threeWay(destType_, other.destType_);
    if (destType_ == destTypeIntf) return threeWay(intf_.value(), other.intf_.value());
    Quil::assertThat(destType_ == destTypeVxlan, "destType() == destTypeVxlan_", SchemaFiles::records,
                     "int L2Rib::CiDest::cmp(const L2Rib::CiDest&) const");
    return threeWay(vtepAddr_, other.vtepAddr_);
}

}  // namespace L2Rib
