#include "common/HostText.h"

#include <cstdio>
#include <ctime>

#include "agent/Elect.h"

namespace Apps {
namespace {

Quil::String interfaceName(Lanx::IntfId intfId, const InterfaceNames& names) {
    const auto name = names.interfaceName(intfId);
    return name ? *name : intfId.str();
}

// The filled VTEPs; a count that no record can have shows none.
std::vector<Quil::String> vteps(const L2Rib::CiDest& dest) {
    std::vector<Quil::String> out;
    if (dest.vtepAddr().count() > dest.vtepAddr().capacity) return out;
    dest.vtepAddr().forEach([&](std::uint32_t, const Lanx::IpGenAddr& address) { out.push_back(address.str()); });
    return out;
}

Json viaOf(const L2Rib::Host& host, const InterfaceNames& names) {
    if (!(host.next() == L2Rib::ObjTuple())) {
        return {{"type", "object"},
                {"table", hyphenated(stringValue(host.next().tableType()), "tableType")},
                {"id", host.next().objId().value()}};
    }
    const L2Rib::CiDest& dest = host.ciDest();
    switch (dest.destType()) {
        case L2Rib::destTypeIntf:
            return {{"type", "interface"}, {"name", interfaceName(dest.intf(), names)}};
        case L2Rib::destTypeVxlan: {
            const auto addresses = vteps(dest);
            Json via{{"type", "vtep"}, {"address", addresses.empty() ? "" : addresses[0]}};
            if (addresses.size() > 1) via["addresses"] = addresses;
            return via;
        }
        case L2Rib::destTypeCpu:
            return {{"type", "cpu"}};
        default:
            return {{"type", hyphenated(stringValue(dest.destType()), "destType")}};
    }
}

Quil::String viaText(const L2Rib::Host& host, const InterfaceNames& names) {
    if (!(host.next() == L2Rib::ObjTuple())) return host.next().str();
    const L2Rib::CiDest& dest = host.ciDest();
    switch (dest.destType()) {
        case L2Rib::destTypeIntf:
            return interfaceName(dest.intf(), names);
        case L2Rib::destTypeVxlan: {
            Quil::String text = "vtep";
            for (const auto& address : vteps(dest)) text += " " + address;
            return text;
        }
        default:
            return hyphenated(stringValue(dest.destType()), "destType");
    }
}

}  // namespace

Quil::String textOf(const L2Rib::Dest& dest, const InterfaceNames& names) {
    switch (dest.destType()) {
        case L2Rib::destTypeIntf:
            return interfaceName(dest.intf().intfId(), names);
        case L2Rib::destTypeVxlan:
            return Quil::cat("vtep ", dest.vxlan().vtepAddr());
        case L2Rib::destTypeMpls:
            return Quil::cat("mpls ", dest.mpls().label(), " over ", interfaceName(dest.mpls().intfId(), names));
        case L2Rib::destTypeTunnel:
            return Quil::cat("tunnel ", interfaceName(dest.tunnel().intfId(), names));
        default:
            return hyphenated(stringValue(dest.destType()), "destType");
    }
}

Quil::String timeNow() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    std::tm utc{};
    char date[32], text[64];
    std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", gmtime_r(&now.tv_sec, &utc));
    std::snprintf(text, sizeof text, "%s.%06ldZ", date, now.tv_nsec / 1000);
    return text;
}

Quil::String textOf(const Json& json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace); }

HostView viewOf(const L2Rib::HostAndSource& record, const InterfaceNames& names) {
    const L2Rib::Host& host = record.host();
    return {record.key().vlanId().value(),
            record.key().ethAddr().str(),
            sourceName(record.source()),
            viaText(host, names),
            Agent::Policy().preference(record.source(), host),
            host.seqNo().value(),
            entryTypeName(host.entryType())};
}

Json keyOf(const L2Rib::HostAndSource& record) {
    return {{"vlan", record.key().vlanId().value()}, {"mac", record.key().ethAddr().str()}};
}

Json detailsOf(const L2Rib::HostAndSource& record, const InterfaceNames& names) {
    const L2Rib::Host& host = record.host();
    return {{"source", sourceName(record.source())},
            {"via", viaOf(host, names)},
            {"preference", Agent::Policy().preference(record.source(), host)},
            {"seqNo", host.seqNo().value()},
            {"entryType", entryTypeName(host.entryType())}};
}

}  // namespace Apps
