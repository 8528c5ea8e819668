#include "fdb/JsonFdb.h"

#include <linux/neighbour.h>
#include <net/if.h>

#include <nlohmann/json.hpp>

namespace Fdb {
namespace {

using Json = nlohmann::json;

// Runs the reading of one key; whatever is wrong with it is a range error under the key's name.
template <class F>
void atKey(const char* key, F&& read) {
    try {
        Quil::atField(key, read);
    } catch (const Json::exception& error) {
        throw Quil::RangeException("is of the wrong type", key);
    }
}

std::uint64_t bounded(const Json& value, std::uint64_t max) {
    if (!value.is_number_unsigned() || value.get<std::uint64_t>() > max) {
        throw Quil::RangeException(Quil::cat("is not a number from 0 to ", max));
    }
    return value.get<std::uint64_t>();
}

// As the kernel has it: up to 15 bytes without blanks and slashes.
bool isName(const Quil::String& name) {
    return !name.empty() && name.size() < IF_NAMESIZE && name.find_first_of(" \t\n/") == name.npos;
}

std::uint16_t stateOf(const Quil::String& text) {
    if (text.empty() || text == "reachable") return NUD_REACHABLE;
    if (text == "permanent") return NUD_PERMANENT;
    if (text == "static" || text == "noarp") return NUD_NOARP;
    if (text == "stale") return NUD_STALE;
    throw Quil::RangeException(Quil::cat("'", text, "' is not a state"));
}

class Loader {
 public:
    Loader(const std::set<Quil::String>& vxlanDevices, Model& model) : vxlanDevices_(vxlanDevices), model_(model) {}

    // The devices first, so that every entry is judged by what all rows say of its device.
    void noteDevices(const Json& row) {
        if (!row.is_object()) return;
        const auto text = [&](const char* key) {
            const auto found = row.find(key);
            return found != row.end() && found->is_string() ? found->get<Quil::String>() : Quil::String();
        };
        const Quil::String device = text("ifname"), master = text("master");
        if (!isName(device) || (!master.empty() && !isName(master))) return;
        Link& link = links_[indexOf(device)];
        if (!master.empty()) link.master = indexOf(master);
        link.isVxlan = link.isVxlan || row.contains("dst") || row.contains("vni") || row.contains("nhid") ||
                       vxlanDevices_.contains(device);
    }
    void publishDevices() {
        for (const auto& [index, link] : links_) model_.linkIs(index, link);
    }

    Entry entryOf(const Json& row) {
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

 private:
    std::uint32_t indexOf(const Quil::String& name) {
        if (!isName(name)) throw Quil::RangeException("is not the name of an interface");
        const auto [found, fresh] = indices_.try_emplace(name, static_cast<std::uint32_t>(indices_.size() + 1));
        if (fresh) links_[found->second].name = name;
        return found->second;
    }
    static Quil::String required(const Json& row, const char* key) {
        if (!row.contains(key)) throw Quil::RangeException("is missing");
        return row.at(key).get<Quil::String>();
    }
    static std::uint32_t number(const Json& row, const char* key, std::uint64_t max) {
        return row.contains(key) ? static_cast<std::uint32_t>(bounded(row.at(key), max)) : 0;
    }
    static void readFlags(const Json& flags, Entry& entry) {
        if (!flags.is_array()) throw Quil::RangeException("is not an array");
        for (const Json& item : flags) {
            const auto flag = item.get<Quil::String>();
            if (flag == "self") entry.flags |= NTF_SELF;
            if (flag == "extern_learn") entry.flags |= NTF_EXT_LEARNED;
            if (flag == "sticky") entry.flags |= NTF_STICKY;
            if (flag == "locked") entry.flagsExt |= 1u << 1;
        }
    }

    const std::set<Quil::String>& vxlanDevices_;
    Model& model_;
    std::map<Quil::String, std::uint32_t> indices_;
    std::map<std::uint32_t, Link> links_;
};

}  // namespace

void loadJson(const Quil::String& text, const std::set<Quil::String>& vxlanDevices, Model& model,
              const std::function<void(const Quil::String&)>& report) {
    const Json rows = Json::parse(text, nullptr, false);
    if (!rows.is_array()) throw Quil::RangeException("is not a JSON array of forwarding entries");
    Loader loader(vxlanDevices, model);
    for (const Json& row : rows) loader.noteDevices(row);
    loader.publishDevices();
    for (std::size_t i = 0; i < rows.size(); ++i) {
        try {
            model.entryIs(loader.entryOf(rows[i]));
        } catch (const Quil::RangeException& error) {
            report(Quil::cat("row ", i, ": ", error.what()));
        }
    }
}

}  // namespace Fdb
