#include "L2Rib/Dest.h"

#include "L2Rib/SchemaFiles.h"
#include "Quil/Assert.h"
#include "Quil/AttrLog.h"
#include "Quil/Trace.h"

namespace L2Rib {
namespace {

constexpr const char* lessSignature = "bool L2Rib::Dest::operator<(const L2Rib::Dest&) const";
constexpr const char* equalExceptKeySignature = "bool L2Rib::Dest::equalExceptKey(const L2Rib::Dest&) const";
constexpr const char* copySignature = "void L2Rib::Dest::copyAllButKey(const L2Rib::Dest&)";

[[noreturn]] void unknownKind(const char* function) {
    Quil::assertFail("!\"unreachable case of destType()\"", SchemaFiles::values, function);
}

void assertKind(bool right, const char* text, const char* function) {
    Quil::assertThat(right, text, SchemaFiles::values, function);
}

// The destination's text, also for a stored record whose variant cannot be unpacked: a trace never raises.
Quil::String traceText(const Dest& dest) {
    try {
        return dest.str();
    } catch (const Quil::RangeException& error) {
        return Quil::cat("(", error.what(), ")");
    }
}

}  // namespace

void Dest::intfIs(const DestDataIntf& intf) {
    assertStorage();
    storageIsZero();
    destType_ = destTypeIntf;
    storage0_ = intf.intfId().value();
}

void Dest::vxlanIs(const DestDataVxlan& vxlan) {
    assertStorage();
    Quil::assertThat(vxlan.vtepAddr().af() == Lanx::ipv4, "vxlan.vtepAddr().af() == Lanx::ipv4_", SchemaFiles::values,
                     "void L2Rib::Dest::vxlanIs(const L2Rib::DestDataVxlan&)");
    destType_ = destTypeVxlan;
    storageIsZero();
    storage0_ = std::uint64_t(__builtin_bswap32(vxlan.vtepAddr().ip4()));
}

void Dest::mplsIs(const DestDataMpls& mpls) {
    assertStorage();
    storage0_ = mpls.intfId().value();
    destType_ = destTypeMpls;
    storage1_ = mpls.label().value();
}

void Dest::tunnelIs(const DestDataTunnel& tunnel) {
    assertStorage();
    storageIsZero();
    destType_ = destTypeTunnel;
    storage0_ = tunnel.intfId().value();
}

void Dest::storageIsZero() {
    storage0_ = std::uint64_t(0);
    storage1_ = 0;
}

DestDataIntf Dest::intf() const {
    assertKind(destType_ == destTypeIntf, "destType() == destTypeIntf_",
               "L2Rib::DestDataIntf L2Rib::Dest::intf() const");
    return DestDataIntf(Lanx::IntfId(storage0_));
}

DestDataVxlan Dest::vxlan() const {
    assertKind(destType_ == destTypeVxlan, "destType() == destTypeVxlan_",
               "L2Rib::DestDataVxlan L2Rib::Dest::vxlan() const");
    return DestDataVxlan(Lanx::IpGenAddr::fromIp4(__builtin_bswap32(static_cast<std::uint32_t>(storage0()))));
}

DestDataMpls Dest::mpls() const {
    assertKind(destType_ == destTypeMpls, "destType() == destTypeMpls_",
               "L2Rib::DestDataMpls L2Rib::Dest::mpls() const");
    return DestDataMpls(Lanx::IntfId(storage0_), Lanx::MplsLabel(storage1_));
}

DestDataTunnel Dest::tunnel() const {
    assertKind(destType_ == destTypeTunnel, "destType() == destTypeTunnel_",
               "L2Rib::DestDataTunnel L2Rib::Dest::tunnel() const");
    return DestDataTunnel(Lanx::IntfId(storage0_));
}

// Requires: the kinds are equal.
bool Dest::sameVariant(const Dest& other, const char* function) const {
    switch (destType_) {
        case destTypeIntf:
            return intf() == other.intf();
        case destTypeVxlan:
            return vxlan() == other.vxlan();
        case destTypeMpls:
            return mpls() == other.mpls();
        case destTypeTunnel:
            return tunnel() == other.tunnel();
        case destTypeCpu:
            return true;
    }
    unknownKind(function);
}

bool operator==(const Dest& a, const Dest& b) {
    return a.key_ == b.key_ && a.destType_ == b.destType_ &&
           a.sameVariant(b, "bool L2Rib::Dest::operator==(const L2Rib::Dest&) const");
}

void Dest::fwkRead(Quil::AttrLogReader& log) {
    Dest read;
    log.read(read.key_);
    log.read(read.storage0_);
    log.read(read.storage1_);
    read.destType_ = DestTypeInstance(log.get<std::uint32_t>());
    *this = read;
}

bool Dest::equalExceptKey(const Dest& other) const {
    Quil::Trace::defaultHandle().log(1, [&] { return Quil::cat(equalExceptKeySignature, " for ", traceText(other)); });
    return destType_ == other.destType_ && sameVariant(other, equalExceptKeySignature);
}

void Dest::copyAllButKey(const Dest& other) {
    Quil::Trace::defaultHandle().log(1, [&] { return Quil::cat(copySignature, " for ", traceText(other)); });
    switch (other.destType_) {
        case destTypeIntf:
            return intfIs(other.intf());
        case destTypeVxlan:
            return vxlanIs(other.vxlan());
        case destTypeMpls:
            return mplsIs(other.mpls());
        case destTypeTunnel:
            return tunnelIs(other.tunnel());
        case destTypeCpu:
            return destTypeIs(destTypeCpu);
    }
    unknownKind(copySignature);
}

bool Dest::operator<(const Dest& other) const {
    Quil::Trace::defaultHandle().log(
        1, [&] { return Quil::cat(lessSignature, " for ", traceText(other), " and ", traceText(*this)); });
    if (!(key_ == other.key_)) return key_ < other.key_;
    if (destType_ != other.destType_) return destType_ < other.destType_;
    switch (destType_) {
        case destTypeIntf:
            return intf() < other.intf();
        case destTypeVxlan:
            return vxlan() < other.vxlan();
        case destTypeMpls:
            return mpls() < other.mpls();
        case destTypeTunnel:
            return tunnel() < other.tunnel();
        case destTypeCpu:
            return false;
    }
    unknownKind(lessSignature);
}

std::uint32_t Dest::hash() const {
    Verro::OneAtATime state;
    state.add(key_.hash());
    switch (destType_) {
        case destTypeIntf:
            return state.add(intf().hash()).finish();
        case destTypeVxlan:
            return state.add(vxlan().hash()).finish();
        case destTypeMpls:
            return state.add(mpls().hash()).finish();
        case destTypeTunnel:
            return state.add(tunnel().hash()).finish();
        case destTypeCpu:
            return state.finish();
    }
    unknownKind("U32 L2Rib::Dest::hash() const");
}

namespace {

Quil::String dataText(const Dest& dest) {
    switch (dest.destType()) {
        case destTypeIntf:
            return dest.intf().intfId().str();
        case destTypeVxlan:
            return dest.vxlan().vtepAddr().str();
        case destTypeMpls: {
            const DestDataMpls mpls = dest.mpls();
            const auto tunnelId = mpls.tunnelId();
            return Quil::cat(!tunnelId ? mpls.intfId().str() : tunnelId.toStrep(), " ", mpls.label());
        }
        case destTypeTunnel: {
            const auto tunnelId = dest.tunnel().tunnel();
            // The blank before a tunnel identifier is part of the form.
            return !tunnelId ? dest.tunnel().intfId().str() : Quil::cat(" ", tunnelId.toStrep());
        }
        case destTypeCpu:
            break;
    }
    return {};
}

}  // namespace

Quil::String Dest::stringValue() const {
    return Quil::cat("id: ", key_, " ", L2Rib::stringValue(destType_), " data: ", dataText(*this));
}

}  // namespace L2Rib
