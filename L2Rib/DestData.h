// DestData.h: the variants of a destination, each as a value of its own.
#pragma once

#include "Lanx/IntfId.h"
#include "Lanx/IpGenAddr.h"
#include "Lanx/MplsLabel.h"
#include "Tunnel/TunnelTable.h"

namespace L2Rib {

// An interface of this switch.
class DestDataIntf : public Quil::Value<DestDataIntf> {
 public:
    DestDataIntf() = default;
    explicit DestDataIntf(Lanx::IntfId intfId) : intfId_(intfId) {}
    explicit DestDataIntf(const Quil::String& text) { Quil::parseValue(text, *this); }
    Lanx::IntfId intfId() const { return intfId_; }
    std::uint32_t hash() const { return intfId_.hash(); }
    static constexpr auto fwkFields() {
        return Quil::fieldList("L2Rib::DestDataIntf", Quil::field("intfId", &DestDataIntf::intfId_));
    }

 private:
    Lanx::IntfId intfId_;
};

// A VXLAN tunnel endpoint (RFC 7348).
class DestDataVxlan : public Quil::Value<DestDataVxlan> {
 public:
    DestDataVxlan() = default;
    explicit DestDataVxlan(const Lanx::IpGenAddr& vtepAddr) : vtepAddr_(vtepAddr) {}
    explicit DestDataVxlan(const Quil::String& text) { Quil::parseValue(text, *this); }
    const Lanx::IpGenAddr& vtepAddr() const { return vtepAddr_; }
    std::uint32_t hash() const { return vtepAddr_.ip6().hash(); }
    static constexpr auto fwkFields() {
        return Quil::fieldList("L2Rib::DestDataVxlan", Quil::field("vtepAddr", &DestDataVxlan::vtepAddr_));
    }

 private:
    Lanx::IpGenAddr vtepAddr_;
};

// An MPLS label over an interface, which may be a dynamic tunnel.
class DestDataMpls : public Quil::Value<DestDataMpls> {
 public:
    DestDataMpls() = default;
    DestDataMpls(Lanx::IntfId intfId, Lanx::MplsLabel label) : intfId_(intfId), label_(label) {}
    explicit DestDataMpls(const Quil::String& text) { Quil::parseValue(text, *this); }
    Lanx::IntfId intfId() const { return intfId_; }
    Lanx::MplsLabel label() const { return label_; }
    // 0 when the interface is no dynamic tunnel; the range exception when the number has more than 48 bits.
    Tunnel::TunnelTable::TunnelId tunnelId() const {
        return Tunnel::TunnelTable::TunnelId(Lanx::DynamicTunnelIntfId::tunnelId(intfId_));
    }
    std::uint32_t hash() const { return Verro::OneAtATime().add(intfId_.hash()).add(label_.hash()).finish(); }
    static constexpr auto fwkFields() {
        return Quil::fieldList("L2Rib::DestDataMpls", Quil::field("intfId", &DestDataMpls::intfId_),
                               Quil::field("label", &DestDataMpls::label_));
    }

 private:
    Lanx::IntfId intfId_;
    Lanx::MplsLabel label_;
};

// A tunnel interface.
class DestDataTunnel : public Quil::Value<DestDataTunnel> {
 public:
    DestDataTunnel() = default;
    explicit DestDataTunnel(Lanx::IntfId intfId) : intfId_(intfId) {}
    explicit DestDataTunnel(const Quil::String& text) { Quil::parseValue(text, *this); }
    Lanx::IntfId intfId() const { return intfId_; }
    // As DestDataMpls::tunnelId().
    Tunnel::TunnelTable::TunnelId tunnel() const {
        return Tunnel::TunnelTable::TunnelId(Lanx::DynamicTunnelIntfId::tunnelId(intfId_));
    }
    std::uint32_t hash() const { return intfId_.hash(); }
    static constexpr auto fwkFields() {
        return Quil::fieldList("L2Rib::DestDataTunnel", Quil::field("intfId", &DestDataTunnel::intfId_));
    }

 private:
    Lanx::IntfId intfId_;
};

}  // namespace L2Rib
