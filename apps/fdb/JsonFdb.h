// JsonFdb: feeds a model from the JSON of "bridge -j fdb show".
//
// Such a file knows neither links nor own addresses: a device is VXLAN when any row gives it "dst", "vni" or "nhid", or
// when it is named so.
#pragma once

#include <functional>
#include <map>
#include <set>

#include "common/JsonObject.h"
#include "common/Names.h"
#include "fdb/FdbModel.h"

namespace Fdb {

class JsonFdb {
 public:
    // Interfaces are entered into names.
    JsonFdb(std::set<Quil::String> vxlanDevices, Model& model, Apps::InterfaceNames& names)
        : vxlanDevices_(std::move(vxlanDevices)), model_(model), names_(names) {}

    // The devices first, so that every entry is judged by what all rows say of its device.
    void loadLinks(const Apps::Json& rows);
    // A malformed row is reported by its index and key and skipped; the rest is used.
    void loadEntries(const Apps::Json& rows, const std::function<void(const Quil::String&)>& report);

 private:
    void noteDevices(const Apps::Json& row);
    Entry entryOf(const Apps::Json& row);
    std::uint32_t indexOf(const Quil::String& name);

    const std::set<Quil::String> vxlanDevices_;
    Model& model_;
    Apps::InterfaceNames& names_;
    std::map<std::uint32_t, Link> links_;
};

}  // namespace Fdb
