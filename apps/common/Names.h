// Names.h: how things are called on screen, in JSON and on the command line.
#pragma once

#include <map>
#include <optional>
#include <vector>

#include "L2Rib/HostAndSource.h"

namespace Apps {

// An enumerator without its prefix, in lower case with hyphens: sourceBgpEvpnMpls is "bgp-evpn-mpls".
Quil::String hyphenated(const Quil::String& enumerator, std::string_view prefix);
Quil::String sourceName(L2Rib::Source source);
Quil::String sourceNames(std::uint32_t mask);          // "bgp,mlag"; "none"
L2Rib::Source sourceOfName(const Quil::String& name);  // raises the range exception
// The mask of "bgp,vxlan-static"; raises the range exception.
std::uint32_t sourceMaskOf(const Quil::String& names);
Quil::String entryTypeName(Bridging::EntryType entryType);

// Names of interfaces by index, as the producers of tables know them: each keeps a file in the directory "interfaces"
// under the root, so that a tool prints the right ones whatever network namespace it runs in.
class InterfaceNames {
 public:
    void nameIs(std::uint32_t index, const Quil::String& name);  // empty: forget it
    // The interface of this name, of which a file speaks: with a number made from the name, the same in every process,
    // that is no index of any namespace's. The range exception for what can be no name.
    Lanx::IntfId interfaceIs(const Quil::String& name);
    // When something changed; raises SystemException.
    void writeTo(const Quil::String& root, const Quil::Name& producer);
    static InterfaceNames readFrom(const Quil::String& root);
    // Reads again; names that are no longer there stay known.
    void refreshFrom(const Quil::String& root);
    // A producer's name; without any file of names, this system's; else none. Bytes that do not print are "?".
    std::optional<Quil::String> name(std::uint32_t index) const;
    std::optional<Quil::String> interfaceName(Lanx::IntfId intfId) const;
    // All that go by this name; producers of several namespaces may have one each.
    std::vector<Lanx::IntfId> interfacesOf(const Quil::String& name) const;

 private:
    std::map<std::uint32_t, Quil::String> names_;
    bool changed_ = true;
    bool hasFile_ = false;
};

}  // namespace Apps
