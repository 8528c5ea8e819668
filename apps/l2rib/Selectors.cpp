#include "l2rib/Selectors.h"

#include <algorithm>

#include "common/Names.h"

namespace Tool {

HostSelectors::HostSelectors(const std::vector<std::string>& words) {
    for (std::size_t i = 0; i < words.size(); i += 2) {
        const std::string& selector = words[i];
        if (selector != "vlan" && selector != "mac" && selector != "source") {
            throw Quil::RangeException("no such selector (vlan, mac, source)", selector);
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

bool HostSelectors::match(const L2Rib::HostAndSource& record) const {
    return (!vlan_ || *vlan_ == record.key().vlanId()) && (!mac_ || *mac_ == record.key().ethAddr()) &&
           (!source_ || *source_ == record.source());
}

}  // namespace Tool
