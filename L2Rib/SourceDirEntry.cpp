#include "L2Rib/SourceDirEntry.h"

#include <vector>

namespace L2Rib {
namespace {

// The keys of the first that the second lacks.
template <class Map>
std::vector<typename Map::key_type> keysMissing(const Map& in, const Map& from) {
    std::vector<typename Map::key_type> keys;
    for (const auto& [key, unused] : in) {
        if (!from.contains(key)) keys.push_back(key);
    }
    return keys;
}

void copy(FloodSet& to, const FloodSet& from) {
    to.floodSetTypeIs(from.floodSetType());
    for (const Dest& gone : keysMissing(to.destSet(), from.destSet())) to.destSetDel(gone);
    for (const auto& [dest, flag] : from.destSet()) to.destSetIs(dest, flag);
}

void copy(VlanFloodSet& to, const VlanFloodSet& from) {
    for (const auto& gone : keysMissing(to.floodSet(), from.floodSet())) to.floodSetDel(gone);
    for (const auto& [mac, floodSet] : from.floodSet()) copy(*to.floodSetIs(mac), *floodSet);
}

}  // namespace

SourceDirEntry::SourceDirEntry(Quil::Name name) : Entity(std::move(name)) {}
SourceDirEntry::~SourceDirEntry() = default;

void SourceDirEntry::SourceDirEntryIs(const SourceDirEntry& other) {
    hostTableMemtabPathIs(other.hostTableMemtabPath());
    lbTableMemtabPathIs(other.lbTableMemtabPath());
    labelTableMemtabPathIs(other.labelTableMemtabPath());
    destTableMemtabPathIs(other.destTableMemtabPath());
    hostTableLenIs(other.hostTableLen());
    lbTableLenIs(other.lbTableLen());
    labelTableLenIs(other.labelTableLen());
    destTableLenIs(other.destTableLen());
    sourceIs(other.source());
    initializedIs(other.initialized());
    for (const auto& gone : keysMissing(vlanFloodSet(), other.vlanFloodSet())) vlanFloodSetDel(gone);
    for (const auto& [vlanId, floodSets] : other.vlanFloodSet()) copy(*vlanFloodSetIs(vlanId), *floodSets);
}

const Quil::Type& SourceDirEntry::fwkType() const { return Quil::typeOf<SourceDirEntry>(); }

void SourceDirEntry::fwkDeclare(Quil::TypeBuilder<SourceDirEntry>& type) {
    using E = SourceDirEntry;
    type.name("L2Rib::SourceDirEntry")
        .creator<Quil::Name>(&sourceDirEntryFactory)
        .attribute("hostTableMemtabPath", &E::hostTableMemtabPath, &E::hostTableMemtabPathIs)
        .attribute("lbTableMemtabPath", &E::lbTableMemtabPath, &E::lbTableMemtabPathIs)
        .attribute("labelTableMemtabPath", &E::labelTableMemtabPath, &E::labelTableMemtabPathIs)
        .attribute("destTableMemtabPath", &E::destTableMemtabPath, &E::destTableMemtabPathIs)
        .attribute("hostTableLen", &E::hostTableLen, &E::hostTableLenIs)
        .attribute("lbTableLen", &E::lbTableLen, &E::lbTableLenIs)
        .attribute("labelTableLen", &E::labelTableLen, &E::labelTableLenIs)
        .attribute("destTableLen", &E::destTableLen, &E::destTableLenIs)
        .attribute("source", &E::source, &E::sourceIs)
        .attribute("multiTable", &E::multiTable)
        .attribute("initialized", &E::initialized, &E::initializedIs)
        .children(
            "vlanFloodSet", [](const E& entry) -> const auto& { return entry.vlanFloodSet(); }, &E::vlanFloodSetIs,
            &E::vlanFloodSetDel, &E::vlanFloodSetDelAll);
}

AgentSourceDir::AgentSourceDir(Quil::Name name) : Entity(std::move(name)) {}
AgentSourceDir::~AgentSourceDir() = default;

const Quil::Type& AgentSourceDir::fwkType() const { return Quil::typeOf<AgentSourceDir>(); }

void AgentSourceDir::fwkDeclare(Quil::TypeBuilder<AgentSourceDir>& type) {
    type.name("L2Rib::AgentSourceDir")
        .creator<Quil::Name>(&agentSourceDirFactory)
        .children(
            "source", [](const AgentSourceDir& dir) -> const auto& { return dir.source(); }, &AgentSourceDir::sourceIs,
            &AgentSourceDir::sourceDel, &AgentSourceDir::sourceDelAll);
}

Quil::Ptr<SourceDirEntry> sourceDirEntryFactory(const Quil::Name& name) { return Quil::makePtr<SourceDirEntry>(name); }
Quil::Ptr<AgentSourceDir> agentSourceDirFactory(const Quil::Name& name) { return Quil::makePtr<AgentSourceDir>(name); }

}  // namespace L2Rib
