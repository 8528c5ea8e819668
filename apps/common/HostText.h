// HostText.h: an output host as text and as JSON.
#pragma once

#include "L2Rib/OutputObjects.h"
#include "common/JsonObject.h"
#include "common/Names.h"

namespace Apps {

struct HostView {
    std::uint32_t vlan;
    Quil::String mac;
    Quil::String source;
    Quil::String via;          // "p1", "vtep 10.0.0.2", "cpu", "lb 7 {10.0.0.2, 10.0.0.3}"
    std::uint32_t preference;  // that counts: the source's default when the host has none
    std::uint32_t seqNo;
    Quil::String entryType;
};
// Without objects: "lb 7".
HostView viewOf(const L2Rib::HostAndSource& record, const InterfaceNames& names,
                const L2Rib::OutputObjects* objects = nullptr);

// "lb 7", "label 2", "dest 1".
Quil::String nameOf(const L2Rib::ObjTuple& tuple);
// With what it leads to: "lb 7 {10.0.0.2, 100 > 10.0.0.3, -}".
Quil::String textOf(const L2Rib::ObjTuple& tuple, const InterfaceNames& names, const L2Rib::OutputObjects& objects);
// That alone: "{10.0.0.2, 100 > 10.0.0.3, -}".
Quil::String contentsOf(const L2Rib::ObjTuple& tuple, const InterfaceNames& names, const L2Rib::OutputObjects& objects);
Json jsonOf(const L2Rib::ObjTuple& tuple, const InterfaceNames& names, const L2Rib::OutputObjects* objects);

// "p1", "vtep 10.0.0.2", "mpls 100 over p1", "tunnel DynamicTunnel1", "cpu".
Quil::String textOf(const L2Rib::Dest& dest, const InterfaceNames& names);

// "2026-11-23T09:10:45.123456Z"
Quil::String timeNow();
// The same of a time of CLOCK_BOOTTIME.
Quil::String timeAt(Quil::Seconds bootTime);

// One line; bytes that are not UTF-8 are replaced.
Quil::String textOf(const Json& json);

// "vlan", "mac", then what detailsOf() gives.
Json keyOf(const L2Rib::HostAndSource& record);
// "source", "via", "preference", "seqNo", "entryType".
Json detailsOf(const L2Rib::HostAndSource& record, const InterfaceNames& names,
               const L2Rib::OutputObjects* objects = nullptr);

}  // namespace Apps
