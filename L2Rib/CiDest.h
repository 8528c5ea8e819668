// CiDest.h: the compact destination inside a host: an interface, one or two VTEPs, or the CPU.
#pragma once

#include "L2Rib/CiVtepIndex.h"
#include "L2Rib/DestType.h"
#include "Lanx/IntfId.h"
#include "Lanx/IpGenAddr.h"
#include "Quilo/PodArray.h"

namespace L2Rib {

class L2RIB_EXPORT CiDest : public Quil::Value<CiDest> {
 public:
    using VtepArray = Quilo::PodArray<Lanx::IpGenAddr, CiVtepIndex, 2u>;

    explicit CiDest(DestType destType = destTypeIntf) : destType_(destType) {}
    // There is no text to read a collection from: stops the process.
    [[noreturn]] explicit CiDest(const Quil::String& text);

    DestType destType() const { return destType_; }
    Lanx::IntfId intf() const { return intf_; }
    const VtepArray& vtepAddr() const { return vtepAddr_; }
    Lanx::IpGenAddr vtepAddr(CiVtepIndex index) const { return vtepAddr_[index]; }
    void destTypeIs(DestType destType) { destType_ = destType; }
    void intfIs(Lanx::IntfId intf) { intf_ = intf; }
    void vtepAddrIs(CiVtepIndex index, const Lanx::IpGenAddr& addr) { vtepAddr_.memberIs(index.value(), addr); }
    Lanx::IpGenAddr vtepAddrDel(CiVtepIndex index) { return vtepAddr_._memberDel(index.value()); }
    void vtepAddrDelAll() { vtepAddr_.memberDelAll(); }

    // Interface, VXLAN and CPU only; any other kind stops the process.
    std::uint32_t hash() const;
    // Three-way order, of interface and VXLAN only: two CPU destinations stop the process.
    int cmp(const CiDest& other) const;
    friend bool operator==(const CiDest& a, const CiDest& b) { return a.cmp(b) == 0; }
    friend bool operator<(const CiDest& a, const CiDest& b) { return a.cmp(b) < 0; }

    static constexpr auto fwkFields() {
        return Quil::fieldList("L2Rib::CiDest", Quil::field("destType", &CiDest::destType_),
                               Quil::field("intf", &CiDest::intf_), Quil::field("vtepAddr", &CiDest::vtepAddr_));
    }
    Quil::String str() const { return Quil::valueToStrep(*this); }
    [[noreturn]] void fwkParseStrep(Quil::StrepCursor& cursor);

 private:
    DestType destType_;
    Lanx::IntfId intf_;
    VtepArray vtepAddr_;
};
static_assert(sizeof(CiDest) == 56 && alignof(CiDest) == 4);

}  // namespace L2Rib
