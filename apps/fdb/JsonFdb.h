// JsonFdb: feeds a model from the JSON of "bridge -j fdb show".
//
// Such a file knows neither links nor own addresses: a device is VXLAN when any row gives it "dst", "vni" or "nhid", or
// when it is named so; interface indices are given out in order of appearance, from 1.
#pragma once

#include <functional>
#include <set>

#include "fdb/FdbModel.h"

namespace Fdb {

// Raises RangeException when the text is no JSON array of rows. A malformed row is reported by its index and key and
// skipped; the rest is used.
void loadJson(const Quil::String& text, const std::set<Quil::String>& vxlanDevices, Model& model,
              const std::function<void(const Quil::String&)>& report);

}  // namespace Fdb
