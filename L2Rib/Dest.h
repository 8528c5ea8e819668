// Dest.h: where traffic finally goes: an interface, a VXLAN tunnel endpoint, an MPLS next hop, a tunnel or the CPU.
//
// A row of the destination tables, 24 bytes: key, 12 bytes of variant storage, kind. The packing is part of the row's
// format:
//
//   kind       destType  storage0                                        storage1
//   interface     0      interface identifier                            0
//   VXLAN         1      low half: IPv4 address as it lies in memory     0
//                        in network order; high half: 0
//   MPLS          2      interface identifier                            label
//   tunnel        3      interface identifier                            0
//   CPU           4      left as it was                                  left as it was
//
// Equality, order and hash look at the unpacked variant: what else the storage holds is invisible to them.
#pragma once

#include "L2Rib/DestData.h"
#include "L2Rib/DestType.h"
#include "L2Rib/ObjId.h"

namespace L2Rib {

class L2RIB_EXPORT Dest : public Quil::Value<Dest> {
 public:
    Dest() = default;
    Dest(DestId key, const DestDataIntf& data) : key_(key) { intfIs(data); }
    Dest(DestId key, const DestDataVxlan& data) : key_(key) { vxlanIs(data); }
    Dest(DestId key, const DestDataMpls& data) : key_(key) { mplsIs(data); }
    Dest(DestId key, const DestDataTunnel& data) : key_(key) { tunnelIs(data); }
    explicit Dest(const Quil::String& text) { Quil::parseValue(text, *this); }

    DestId key() const { return key_; }
    DestId id() const { return key_; }
    std::uint64_t storage0() const { return storage0_; }
    std::uint32_t storage1() const { return storage1_; }
    DestType destType() const { return destType_; }

    // The raw fields, for reflection and the attribute log. destTypeIs() alone makes a CPU destination.
    void storage0Is(std::uint64_t storage0) { storage0_ = storage0; }
    void storage1Is(std::uint32_t storage1) { storage1_ = storage1; }
    void destTypeIs(DestType destType) { destType_ = destType; }

    void intfIs(const DestDataIntf& intf);
    void vxlanIs(const DestDataVxlan& vxlan);  // an IPv6 VTEP stops the process
    void mplsIs(const DestDataMpls& mpls);
    void tunnelIs(const DestDataTunnel& tunnel);
    void storageIsZero();  // clears the 12 storage bytes; the kind stays

    // The variant; asking for another kind stops the process.
    DestDataIntf intf() const;
    DestDataVxlan vxlan() const;
    DestDataMpls mpls() const;  // the range exception for a stored label that is none
    DestDataTunnel tunnel() const;

    friend L2RIB_EXPORT bool operator==(const Dest& a, const Dest& b);
    bool operator<(const Dest& other) const;  // key, kind, variant
    bool equalExceptKey(const Dest& other) const;
    void copyAllButKey(const Dest& other);
    std::uint32_t hash() const;  // of the key and the variant, not of the kind

    Quil::String stringValue() const;
    Quil::String str() const { return Quil::cat("(", stringValue(), ")"); }

    // The wire form is that of the fields; the range exception for a kind that is none.
    void fwkRead(Quil::AttrLogReader& log);

    static constexpr auto fwkFields() {
        return Quil::fieldList("L2Rib::Dest", Quil::field("key", &Dest::key_),
                               Quil::field("storage0", &Dest::storage0_), Quil::field("storage1", &Dest::storage1_),
                               Quil::field("destType", &Dest::destType_));
    }

 private:
    void assertStorage() const {}  // a hook for checks of the storage; nothing to check in production
    bool sameVariant(const Dest& other, const char* function) const;

    DestId key_;
    Quil::Flat<std::uint64_t> storage0_;
    std::uint32_t storage1_ = 0;
    DestType destType_ = destTypeIntf;
};
static_assert(sizeof(Dest) == 24 && alignof(Dest) == 4);

}  // namespace L2Rib
