// Selectors.h: which hosts a command is about: "vlan 10 mac 02:aa:aa:aa:aa:01 source bgp", all of which must hold.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "L2Rib/HostAndSource.h"

namespace Tool {

class HostSelectors {
 public:
    // Raises RangeException, naming the selector and its value.
    explicit HostSelectors(const std::vector<std::string>& words);
    bool match(const L2Rib::HostAndSource& record) const;

 private:
    std::optional<Bridging::VlanId> vlan_;
    std::optional<Lanx::EthAddr> mac_;
    std::optional<L2Rib::Source> source_;
};

}  // namespace Tool
