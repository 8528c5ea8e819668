#include "l2rib/Selectors.h"

#include <algorithm>

#include "common/Names.h"

namespace Tool {

Selectors::Selectors(const std::vector<std::string>& words, const std::vector<std::string>& known) {
    for (std::size_t i = 0; i < words.size(); i += 2) {
        const std::string& selector = words[i];
        if (std::find(known.begin(), known.end(), selector) == known.end()) {
            std::string all;
            for (const auto& one : known) all += (all.empty() ? "" : ", ") + one;
            throw Quil::RangeException("no such selector (" + all + ")", selector);
        }
        if (i + 1 == words.size()) throw Quil::RangeException("needs a value", selector);
        const std::string& value = words[i + 1];
        if (std::count(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(i), selector) > 0) {
            throw Quil::RangeException("is given twice", selector);
        }
        Quil::atField((selector + " " + value).c_str(), [&] {
            if (selector == "vlan") vlan_ = Bridging::VlanId(value);
            if (selector == "mac") mac_ = Lanx::EthAddr(value);
            if (selector == "source") source_ = Apps::sourceOfName(value);
        });
    }
}

Bridging::MacVlanPair Selectors::host() const {
    if (!vlan_ || !mac_) throw Quil::RangeException("vlan and mac are both needed");
    return {*mac_, *vlan_};
}

bool Selectors::match(const Bridging::VlanId& vlanId, const Lanx::EthAddr& mac) const {
    return (!vlan_ || *vlan_ == vlanId) && (!mac_ || *mac_ == mac);
}

bool Selectors::match(const L2Rib::HostAndSource& record) const {
    return match(record.key().vlanId(), record.key().ethAddr()) && (!source_ || *source_ == record.source());
}

}  // namespace Tool
