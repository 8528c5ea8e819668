// Selectors.h: what a command is about: "vlan 10 mac 02:aa:aa:aa:aa:01 source bgp", all of which must hold.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "L2Rib/HostAndSource.h"

namespace Tool {

class Selectors {
 public:
    // known: the selectors that the command takes. Raises RangeException, naming the selector and its value.
    explicit Selectors(const std::vector<std::string>& words,
                       const std::vector<std::string>& known = {"vlan", "mac", "source"});
    // The host that is selected; raises RangeException when VLAN or MAC are missing.
    Bridging::MacVlanPair host() const;
    bool match(const Bridging::VlanId& vlanId, const Lanx::EthAddr& mac) const;
    bool match(const L2Rib::HostAndSource& record) const;

 private:
    std::optional<Bridging::VlanId> vlan_;
    std::optional<Lanx::EthAddr> mac_;
    std::optional<L2Rib::Source> source_;
};

}  // namespace Tool
