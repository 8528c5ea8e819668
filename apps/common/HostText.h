// HostText.h: an output host as text and as JSON.
#pragma once

#include "L2Rib/Dest.h"
#include "common/JsonObject.h"
#include "common/Names.h"

namespace Apps {

struct HostView {
    std::uint32_t vlan;
    Quil::String mac;
    Quil::String source;
    Quil::String via;          // "p1", "vtep 10.0.0.2", "cpu", "(Dest 7)"
    std::uint32_t preference;  // that counts: the source's default when the host has none
    std::uint32_t seqNo;
    Quil::String entryType;
};
HostView viewOf(const L2Rib::HostAndSource& record, const InterfaceNames& names);

// "p1", "vtep 10.0.0.2", "mpls 100 over p1", "tunnel DynamicTunnel1", "cpu".
Quil::String textOf(const L2Rib::Dest& dest, const InterfaceNames& names);

// "2026-11-23T09:10:45.123456Z"
Quil::String timeNow();

// One line; bytes that are not UTF-8 are replaced.
Quil::String textOf(const Json& json);

// "vlan", "mac", then what detailsOf() gives.
Json keyOf(const L2Rib::HostAndSource& record);
// "source", "via", "preference", "seqNo", "entryType".
Json detailsOf(const L2Rib::HostAndSource& record, const InterfaceNames& names);

}  // namespace Apps
