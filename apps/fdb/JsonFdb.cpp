#include "fdb/JsonFdb.h"

#include <linux/neighbour.h>

namespace Fdb {

using Apps::atKey;
using Apps::bounded;
using Apps::Json;

namespace {

std::uint16_t stateOf(const Quil::String& text) {
    if (text.empty() || text == "reachable") return NUD_REACHABLE;
    if (text == "permanent") return NUD_PERMANENT;
    if (text == "static" || text == "noarp") return NUD_NOARP;
    if (text == "stale") return NUD_STALE;
    throw Quil::RangeException(Quil::cat("'", text, "' is not a state"));
}

Quil::String required(const Json& row, const char* key) {
    if (!row.contains(key)) throw Quil::RangeException("is missing");
    return row.at(key).get<Quil::String>();
}

std::uint32_t number(const Json& row, const char* key, std::uint64_t max) {
    return row.contains(key) ? static_cast<std::uint32_t>(bounded(row.at(key), max)) : 0;
}

void readFlags(const Json& flags, Entry& entry) {
    if (!flags.is_array()) throw Quil::RangeException("is not an array");
    for (const Json& item : flags) {
        const auto flag = item.get<Quil::String>();
        if (flag == "self") entry.flags |= NTF_SELF;
        if (flag == "extern_learn") entry.flags |= NTF_EXT_LEARNED;
        if (flag == "sticky") entry.flags |= NTF_STICKY;
        if (flag == "locked") entry.flagsExt |= 1u << 1;
    }
}

}  // namespace

void JsonFdb::loadLinks(const Json& rows) {
    links_.clear();
    for (const Json& row : rows) noteDevices(row);
    for (const auto& [index, link] : links_) model_.linkIs(index, link);
}

void JsonFdb::loadEntries(const Json& rows, const std::function<void(const Quil::String&)>& report) {
    for (std::size_t i = 0; i < rows.size(); ++i) {
        try {
            model_.entryIs(entryOf(rows[i]));
        } catch (const Quil::RangeException& error) {
            report(Quil::cat("row ", i, ": ", error.what()));
        }
    }
}

void JsonFdb::noteDevices(const Json& row) {
    if (!row.is_object()) return;
    const auto text = [&](const char* key) {
        const auto found = row.find(key);
        return found != row.end() && found->is_string() ? found->get<Quil::String>() : Quil::String();
    };
    const Quil::String device = text("ifname"), master = text("master");
    try {
        Link& link = links_[indexOf(device)];
        if (!master.empty()) link.master = indexOf(master);
        link.isVxlan = link.isVxlan || row.contains("dst") || row.contains("vni") || row.contains("nhid") ||
                       vxlanDevices_.contains(device);
    } catch (const Quil::RangeException&) {
        return;  // told of when the row is read
    }
}

Entry JsonFdb::entryOf(const Json& row) {
    if (!row.is_object()) throw Quil::RangeException("is not an object");
    Entry entry;
    atKey("mac", [&] { entry.mac = Lanx::EthAddr(required(row, "mac")); });
    atKey("ifname", [&] { entry.device = indexOf(required(row, "ifname")); });
    atKey("flags", [&] { readFlags(row.value("flags", Json::array()), entry); });
    atKey("state", [&] { entry.state = stateOf(row.value("state", Quil::String())); });
    atKey("vlan", [&] {
        if (!row.contains("vlan")) return;
        entry.vlan = static_cast<std::uint16_t>(bounded(row.at("vlan"), 0xffff));
        if (entry.vlan != 0) Bridging::VlanId::fwkCheck(entry.vlan);
    });
    atKey("dst", [&] {
        if (row.contains("dst")) entry.dst = Lanx::IpGenAddr(row.at("dst").get<Quil::String>());
    });
    atKey("src_vni", [&] { entry.srcVni = number(row, "src_vni", 0xffffff); });
    atKey("vni", [&] { number(row, "vni", 0xffffff); });
    atKey("nhid", [&] { entry.nextHopGroup = number(row, "nhid", 0xffffffff); });
    atKey("master", [&] {
        if (row.contains("master")) entry.bridge = indexOf(row.at("master").get<Quil::String>());
    });
    if (entry.bridge == 0) entry.flags |= NTF_SELF;
    return entry;
}

std::uint32_t JsonFdb::indexOf(const Quil::String& name) {
    const auto index = static_cast<std::uint32_t>(names_.interfaceIs(name).payload());
    links_[index].name = name;
    return index;
}

}  // namespace Fdb
