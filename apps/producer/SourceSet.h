// SourceSet: the sources that one producer finds in forwarding tables, each announced when its first host or flood
// entry appears: "kernel-bgp", "kernel-local-dynamic", ...
#pragma once

#include <map>

#include "fdb/FdbModel.h"
#include "producer/AnnouncedSource.h"

namespace Producer {

class SourceSet : public Fdb::Sink {
 public:
    // A fill has begun. Sources of this name that an earlier process left behind are announced at once: what is not
    // told of them any more is removed.
    SourceSet(Corestore::EntityManager& em, Quil::Name name, std::uint32_t maxHosts);

    void hostIs(L2Rib::Source source, const L2Rib::Host& host) override;
    void hostDel(L2Rib::Source source, const Bridging::MacVlanPair& key) override;
    void floodIs(L2Rib::Source source, Bridging::VlanId vlanId, const Lanx::IpGenAddr& vtep) override;
    void floodDel(L2Rib::Source source, Bridging::VlanId vlanId, const Lanx::IpGenAddr& vtep) override;
    void groupIs(L2Rib::Source source, Fdb::NextHopId group, const Fdb::GroupMembers& members) override;
    void groupDel(L2Rib::Source source, Fdb::NextHopId group) override;
    void fillEnds();
    void withdraw();

 private:
    using Groups = std::map<Fdb::NextHopId, Fdb::GroupMembers>;
    static bool isMember(const Groups& groups, Fdb::NextHopId id);
    void delUnused(L2Rib::Source source, const Fdb::GroupMembers& members);
    AnnouncedSource& sourceOf(L2Rib::Source source);
    Quil::Name nameOf(L2Rib::Source source) const;

    Corestore::EntityManager& em_;
    const Quil::Name name_;
    const std::uint32_t maxHosts_;
    bool isFilling_ = true;
    std::map<L2Rib::Source, AnnouncedSource> sources_;
    std::map<L2Rib::Source, Groups> groups_;
};

}  // namespace Producer
