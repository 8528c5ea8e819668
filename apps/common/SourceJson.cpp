#include "common/SourceJson.h"

#include <cmath>
#include <limits>

namespace Apps {
namespace {

using namespace L2Rib;

constexpr std::uint64_t max32 = 0xffffffff;

// An enumerator by its name without prefix, in lower case with hyphens.
template <class E>
E enumOf(const Json& value, std::string_view prefix) {
    const auto name = value.get<Quil::String>();
    for (const auto& row : fwkEnum(E()).rows) {
        if (hyphenated(row.name, prefix) == name) return row.value;
    }
    throw Quil::RangeException(Quil::cat("'", name, "' is none of ", fwkEnum(E()).typeName));
}

class Reader {
 public:
    explicit Reader(InterfaceNames& names) : names_(names) {}

    SourceContents source(const Json& json) {
        SourceContents out;
        JsonObject object(json);
        object.read("schema", [](const Json& v) {
            if (v != 1) throw Quil::RangeException("is not 1");
        });
        object.read("name", [&](const Json& v) { out.name = v.get<Quil::Name>(); });
        object.require("source", [&](const Json& v) { out.source = sourceOfName(v.get<Quil::String>()); });
        const auto rows = [&](const char* key, auto& into, auto read) {
            std::set<std::decay_t<decltype(into.front().key())>> keys;
            object.readEach(key, [&](const Json& v) {
                into.push_back((this->*read)(v));
                if (!keys.insert(into.back().key()).second) throw Quil::RangeException("is given twice");
            });
        };
        rows("hosts", out.hosts, &Reader::host);
        rows("loadBalances", out.loadBalances, &Reader::loadBalance);
        rows("labels", out.labels, &Reader::label);
        rows("dests", out.dests, &Reader::destRow);
        std::set<std::pair<Bridging::VlanId, Lanx::EthAddr>> sets;
        object.readEach("floodSets", [&](const Json& v) {
            out.floodSets.push_back(floodRow(v));
            const auto& row = out.floodSets.back();
            if (!sets.emplace(row.vlanId, row.mac).second) throw Quil::RangeException("is given twice");
        });
        object.end();
        return out;
    }

 private:
    static Bridging::VlanId vlan(JsonObject& object) {
        std::uint16_t number = 0;
        object.require("vlan", [&](const Json& v) {
            number = static_cast<std::uint16_t>(bounded(v, 0xffff));
            Bridging::VlanId::fwkCheck(number);
        });
        return Bridging::VlanId(number);
    }
    static std::uint64_t id(JsonObject& object) {
        std::uint64_t number = 0;
        object.require("id", [&](const Json& v) {
            number = bounded(v, Constants::objIdLast.value());
            if (number == 0) throw Quil::RangeException("is 0, which names no object");
        });
        return number;
    }
    static Lanx::IpGenAddr address(const Json& value) { return Lanx::IpGenAddr(value.get<Quil::String>()); }

    static ObjTuple tuple(const Json& json) {
        JsonObject object(json);
        TableType table = tableTypeInvalid;
        object.require("table", [&](const Json& v) {
            table = enumOf<TableType>(v, "tableType");
            if (table == tableTypeInvalid) throw Quil::RangeException("is no table");
        });
        const ObjTuple tuple(ObjId(id(object)), table);
        object.end();
        return tuple;
    }

    // By name, or, where it has none here, as "DynamicTunnel7".
    Lanx::IntfId interface(JsonObject& object) {
        Lanx::IntfId intfId;
        if (object.has("name") == object.has("intf")) throw Quil::RangeException("needs either name or intf");
        object.read("name", [&](const Json& v) { intfId = names_.interfaceIs(v.get<Quil::String>()); });
        object.read("intf", [&](const Json& v) { intfId = Lanx::IntfId(v.get<Quil::String>()); });
        return intfId;
    }

    CiDest ciDest(const Json& json) {
        JsonObject object(json);
        CiDest dest;
        object.require("type", [&](const Json& v) {
            if (v != "interface" && v != "vtep" && v != "cpu")
                throw Quil::RangeException("is not interface, vtep or cpu");
        });
        const Quil::String type = object.text("type");
        if (type == "interface") dest.intfIs(interface(object));
        if (type == "cpu") dest.destTypeIs(destTypeCpu);
        if (type == "vtep") readVteps(object, dest);
        object.end();
        return dest;
    }
    static void readVteps(JsonObject& object, CiDest& dest) {
        dest.destTypeIs(destTypeVxlan);
        std::uint32_t count = 0;
        if (object.has("address") == object.has("addresses")) {
            throw Quil::RangeException("needs either address or addresses");
        }
        const auto add = [&](const Json& v) { dest.vtepAddrIs(CiVtepIndex(count++), address(v)); };
        object.read("address", add);
        object.readEach("addresses", add);
    }

    Host host(const Json& json) {
        JsonObject object(json);
        const auto vlanId = vlan(object);
        Lanx::EthAddr mac;
        object.require("mac", [&](const Json& v) { mac = Lanx::EthAddr(v.get<Quil::String>()); });
        Host host(Bridging::MacVlanPair(mac, vlanId));
        host.lastMoveTimeIs(std::numeric_limits<double>::quiet_NaN());
        const auto u32 = [](const Json& v) { return static_cast<std::uint32_t>(bounded(v, max32)); };
        object.read("seqNo", [&](const Json& v) { host.seqNoIs(Keel::Seqno32(u32(v))); });
        object.read("preference", [&](const Json& v) { host.preferenceIs(u32(v)); });
        object.read("entryType", [&](const Json& v) { host.entryTypeIs(enumOf<Bridging::EntryType>(v, "entryType")); });
        object.read("lastMoveTime", [&](const Json& v) {
            if (!v.is_number() || !(v.get<double>() >= 0)) throw Quil::RangeException("is not a time in seconds");
            host.lastMoveTimeIs(v.get<double>());
        });
        if (object.has("ciDest") == object.has("next")) throw Quil::RangeException("needs either ciDest or next");
        object.read("ciDest", [&](const Json& v) { host.ciDestIs(ciDest(v)); });
        object.read("next", [&](const Json& v) { host.nextIs(tuple(v)); });
        object.end();
        return host;
    }

    LoadBalance loadBalance(const Json& json) {
        JsonObject object(json);
        LoadBalance group{LoadBalanceId(id(object))};
        std::uint32_t count = 0;  // null is a hole
        object.readEach("next", [&](const Json& v) {
            EcmpIndex::fwkCheck(count);
            group.nextIs(EcmpIndex(static_cast<std::uint8_t>(count++)), v.is_null() ? ObjTuple() : tuple(v));
        });
        object.end();
        return group;
    }

    static Lanx::MplsLabel mplsLabel(JsonObject& object) {
        std::uint32_t label = 0;
        object.require("label", [&](const Json& v) {
            label = static_cast<std::uint32_t>(bounded(v, max32));
            Lanx::MplsLabel::fwkCheck(label);
        });
        return Lanx::MplsLabel(label);
    }

    Label label(const Json& json) {
        JsonObject object(json);
        Label label{LabelId(id(object))};
        label.labelIs(mplsLabel(object));
        object.read("next", [&](const Json& v) { label.nextIs(tuple(v)); });
        object.end();
        return label;
    }

    Dest destRow(const Json& json) {
        JsonObject object(json);
        return dest(object, DestId(id(object)));
    }
    Dest dest(JsonObject& object, DestId key) {
        Quil::String type;
        object.require("type", [&](const Json& v) { type = v.get<Quil::String>(); });
        Dest dest;
        if (type == "interface") {
            dest = Dest(key, DestDataIntf(interface(object)));
        } else if (type == "tunnel") {
            dest = Dest(key, DestDataTunnel(interface(object)));
        } else if (type == "mpls") {
            const auto intfId = interface(object);
            dest = Dest(key, DestDataMpls(intfId, mplsLabel(object)));
        } else if (type == "vtep") {
            object.require("address", [&](const Json& v) {
                if (address(v).af() != Lanx::ipv4) throw Quil::RangeException("is not an IPv4 address");
                dest = Dest(key, DestDataVxlan(address(v)));
            });
        } else if (type == "cpu") {
            dest = Dest(key, DestDataIntf());
            dest.destTypeIs(destTypeCpu);
        } else {
            throw Quil::RangeException("is not interface, vtep, mpls, tunnel or cpu", "type");
        }
        object.end();
        return dest;
    }

    FloodRow floodRow(const Json& json) {
        JsonObject object(json);
        FloodRow row;
        row.vlanId = vlan(object);
        object.read("mac", [&](const Json& v) { row.mac = Lanx::EthAddr(v.get<Quil::String>()); });
        object.read("type", [&](const Json& v) {
            row.type = enumOf<FloodSetType>(v, "floodSetType");
            if (row.type == floodSetTypeInvalid) throw Quil::RangeException("is neither all nor any");
        });
        object.readEach("dests", [&](const Json& v) {
            JsonObject member(v);
            row.dests.push_back(dest(member, DestId()));
        });
        object.end();
        return row;
    }

    InterfaceNames& names_;
};

Json jsonOf(Lanx::IntfId intfId, const InterfaceNames& names) {
    if (const auto name = names.interfaceName(intfId)) return {{"name", *name}};
    return {{"intf", intfId.str()}};
}

Json with(Json json, const Json& more) {
    json.update(more);
    return json;
}

Json jsonOf(const ObjTuple& tuple) {
    return {{"table", hyphenated(stringValue(tuple.tableType()), "tableType")}, {"id", tuple.objId().value()}};
}

Json jsonOf(const Host& host, const InterfaceNames& names) {
    Json row{{"vlan", host.key().vlanId().value()},
             {"mac", host.key().ethAddr().str()},
             {"seqNo", host.seqNo().value()},
             {"preference", host.preference()},
             {"entryType", entryTypeName(host.entryType())}};
    if (std::isfinite(host.lastMoveTime())) row["lastMoveTime"] = host.lastMoveTime();
    if (host.next() == ObjTuple()) {
        row["ciDest"] = Apps::jsonOf(host.ciDest(), names);
    } else {
        row["next"] = jsonOf(host.next());
    }
    return row;
}

Json jsonOf(const LoadBalance& group) {
    Json next = Json::array();
    if (group.next().count() <= LoadBalance::MemberArray::capacity) {
        group.next().forEach([&](std::uint32_t, const ObjTuple& tuple) {
            next.push_back(tuple == ObjTuple() ? Json() : jsonOf(tuple));
        });
    }
    return {{"id", group.key().value()}, {"next", next}};
}

Json jsonOf(const Label& label) {
    Json row{{"id", label.key().value()}, {"label", label.label().value()}};
    if (!(label.next() == ObjTuple())) row["next"] = jsonOf(label.next());
    return row;
}

}  // namespace

Json jsonOf(const CiDest& dest, const InterfaceNames& names) {
    switch (dest.destType()) {
        case destTypeIntf:
            return with({{"type", "interface"}}, jsonOf(dest.intf(), names));
        case destTypeVxlan: {
            std::vector<Quil::String> addresses;
            if (dest.vtepAddr().count() <= dest.vtepAddr().capacity) {
                dest.vtepAddr().forEach([&](auto, const auto& address) { addresses.push_back(address.str()); });
            }
            if (addresses.size() == 1) return {{"type", "vtep"}, {"address", addresses[0]}};
            return {{"type", "vtep"}, {"addresses", addresses}};
        }
        default:
            return {{"type", hyphenated(stringValue(dest.destType()), "destType")}};
    }
}

Json jsonOf(const Dest& dest, const InterfaceNames& names) {
    switch (dest.destType()) {
        case destTypeIntf:
            return with({{"type", "interface"}}, jsonOf(dest.intf().intfId(), names));
        case destTypeVxlan:
            return {{"type", "vtep"}, {"address", dest.vxlan().vtepAddr().str()}};
        case destTypeMpls:
            return with(with({{"type", "mpls"}}, jsonOf(dest.mpls().intfId(), names)),
                        {{"label", dest.mpls().label().value()}});
        case destTypeTunnel:
            return with({{"type", "tunnel"}}, jsonOf(dest.tunnel().intfId(), names));
        default:
            return {{"type", hyphenated(stringValue(dest.destType()), "destType")}};
    }
}

std::vector<SourceContents> sourcesOf(const Json& json, InterfaceNames& names) {
    Reader reader(names);
    std::vector<SourceContents> sources;
    JsonObject object(json);
    if (!object.has("sources")) return {reader.source(json)};
    object.read("schema", [](const Json& v) {
        if (v != 1) throw Quil::RangeException("is not 1");
    });
    object.readEach("sources", [&](const Json& v) { sources.push_back(reader.source(v)); });
    object.end();
    return sources;
}

Json jsonOf(const std::vector<SourceContents>& sources, const InterfaceNames& names) {
    Json rows = Json::array();
    for (const SourceContents& source : sources) {
        Json out = Json::object();
        if (!source.name.empty()) out["name"] = source.name;
        if (source.source != sourceNone) out["source"] = sourceName(source.source);
        for (const auto& host : source.hosts) out["hosts"].push_back(jsonOf(host, names));
        for (const auto& group : source.loadBalances) out["loadBalances"].push_back(jsonOf(group));
        for (const auto& label : source.labels) out["labels"].push_back(jsonOf(label));
        for (const auto& dest : source.dests) {
            out["dests"].push_back(with({{"id", dest.key().value()}}, jsonOf(dest, names)));
        }
        for (const auto& flood : source.floodSets) {
            Json dests = Json::array();
            for (const auto& dest : flood.dests) dests.push_back(jsonOf(dest, names));
            out["floodSets"].push_back({{"vlan", flood.vlanId.value()},
                                        {"mac", flood.mac.str()},
                                        {"type", hyphenated(stringValue(flood.type), "floodSetType")},
                                        {"dests", dests}});
        }
        rows.push_back(out);
    }
    return {{"schema", 1}, {"sources", rows}};
}

}  // namespace Apps
