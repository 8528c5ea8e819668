#include "common/HostText.h"

#include <cmath>
#include <cstdio>
#include <ctime>

#include "agent/Policy.h"
#include "common/SourceJson.h"

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

// An object that leads to more than these is shown in part.
constexpr int maxShown = 256;

// What stands for an object where it is a member of another.
Quil::String memberText(const L2Rib::ObjTuple& tuple, const InterfaceNames& names, const L2Rib::OutputObjects& objects,
                        int& budget) {
    if (tuple == L2Rib::ObjTuple()) return "-";
    if (--budget < 0) return "...";
    if (tuple.tableType() == L2Rib::tableTypeLoadBalance) {
        Quil::String text;
        for (const auto& member : objects.next(tuple)) {
            text += (text.empty() ? "" : ", ") + memberText(member, names, objects, budget);
        }
        return "{" + text + "}";
    }
    L2Rib::LabelAndSource label;
    L2Rib::DestAndSource dest;
    if (tuple.tableType() == L2Rib::tableTypeLabel && objects.labels()->label(tuple.labelId(), label)) {
        return Quil::cat(label.labelObj().label(), " > ", memberText(label.labelObj().next(), names, objects, budget));
    }
    if (tuple.tableType() == L2Rib::tableTypeDest && objects.dests()->dest(tuple.destId(), dest)) {
        const bool isVtep = dest.dest().destType() == L2Rib::destTypeVxlan;
        return isVtep ? dest.dest().vxlan().vtepAddr().str() : textOf(dest.dest(), names);
    }
    return "?";
}

Json objectJson(const L2Rib::ObjTuple& tuple, const InterfaceNames& names, const L2Rib::OutputObjects* objects,
                int& budget) {
    if (tuple == L2Rib::ObjTuple()) return nullptr;
    Json json{{"type", "object"},
              {"table", hyphenated(stringValue(tuple.tableType()), "tableType")},
              {"id", tuple.objId().value()}};
    if (!objects || --budget < 0) return json;
    L2Rib::LoadBalanceAndSource group;
    L2Rib::LabelAndSource label;
    L2Rib::DestAndSource dest;
    if (tuple.tableType() == L2Rib::tableTypeLoadBalance && objects->loadBalances()->lb(tuple.lbId(), group)) {
        Json members = Json::array();
        for (const auto& member : objects->next(tuple)) members.push_back(objectJson(member, names, objects, budget));
        json["members"] = members;
    } else if (tuple.tableType() == L2Rib::tableTypeLabel && objects->labels()->label(tuple.labelId(), label)) {
        json["label"] = label.labelObj().label().value();
        json["next"] = objectJson(label.labelObj().next(), names, objects, budget);
    } else if (tuple.tableType() == L2Rib::tableTypeDest && objects->dests()->dest(tuple.destId(), dest)) {
        json["dest"] = jsonOf(dest.dest(), names);
    }
    return json;
}

Json viaOf(const L2Rib::Host& host, const InterfaceNames& names, const L2Rib::OutputObjects* objects) {
    if (!(host.next() == L2Rib::ObjTuple())) return jsonOf(host.next(), names, objects);
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

Quil::String viaText(const L2Rib::Host& host, const InterfaceNames& names, const L2Rib::OutputObjects* objects) {
    const L2Rib::ObjTuple& next = host.next();
    if (!(next == L2Rib::ObjTuple())) return objects ? textOf(next, names, *objects) : nameOf(next);
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

Quil::String nameOf(const L2Rib::ObjTuple& tuple) {
    switch (tuple.tableType()) {
        case L2Rib::tableTypeLoadBalance:
            return Quil::cat("lb ", tuple.objId());
        case L2Rib::tableTypeLabel:
            return Quil::cat("label ", tuple.objId());
        case L2Rib::tableTypeDest:
            return Quil::cat("dest ", tuple.objId());
        default:
            return tuple.str();
    }
}

Quil::String contentsOf(const L2Rib::ObjTuple& tuple, const InterfaceNames& names,
                        const L2Rib::OutputObjects& objects) {
    int budget = maxShown;
    const Quil::String text = memberText(tuple, names, objects, budget);
    return tuple.tableType() == L2Rib::tableTypeLoadBalance ? text : "{" + text + "}";
}

Quil::String textOf(const L2Rib::ObjTuple& tuple, const InterfaceNames& names, const L2Rib::OutputObjects& objects) {
    return nameOf(tuple) + " " + contentsOf(tuple, names, objects);
}

Json jsonOf(const L2Rib::ObjTuple& tuple, const InterfaceNames& names, const L2Rib::OutputObjects* objects) {
    int budget = maxShown;
    return objectJson(tuple, names, objects, budget);
}

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

namespace {

Quil::String textOf(const timespec& time) {
    std::tm utc{};
    char date[32], text[64];
    std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", gmtime_r(&time.tv_sec, &utc));
    std::snprintf(text, sizeof text, "%s.%06ldZ", date, time.tv_nsec / 1000);
    return text;
}

double secondsOf(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

}  // namespace

Quil::String timeNow() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return textOf(now);
}

Quil::String timeAt(Quil::Seconds bootTime) {
    const double time = std::max(0.0, secondsOf(CLOCK_REALTIME) - secondsOf(CLOCK_BOOTTIME) + bootTime);
    timespec at{};
    at.tv_sec = static_cast<time_t>(time);
    at.tv_nsec = static_cast<long>((time - std::floor(time)) * 1e9);
    return textOf(at);
}

Quil::String textOf(const Json& json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace); }

HostView viewOf(const L2Rib::HostAndSource& record, const InterfaceNames& names, const L2Rib::OutputObjects* objects) {
    const L2Rib::Host& host = record.host();
    return {record.key().vlanId().value(),
            record.key().ethAddr().str(),
            sourceName(record.source()),
            viaText(host, names, objects),
            Agent::Policy().preference(record.source(), host),
            host.seqNo().value(),
            entryTypeName(host.entryType())};
}

Json keyOf(const L2Rib::HostAndSource& record) {
    return {{"vlan", record.key().vlanId().value()}, {"mac", record.key().ethAddr().str()}};
}

Json detailsOf(const L2Rib::HostAndSource& record, const InterfaceNames& names, const L2Rib::OutputObjects* objects) {
    const L2Rib::Host& host = record.host();
    return {{"source", sourceName(record.source())},
            {"via", viaOf(host, names, objects)},
            {"preference", Agent::Policy().preference(record.source(), host)},
            {"seqNo", host.seqNo().value()},
            {"entryType", entryTypeName(host.entryType())}};
}

}  // namespace Apps
