// NextHops: the kernel's next hops for forwarding entries, and their groups: of each source the groups that its hosts
// lead to, one for all of them.
//
// Identifiers are the kernel's. A group has at most 16 members here, the first ones; a member that is no VTEP is left
// out.
//
// Owner     The model.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include "L2Rib/Source.h"
#include "Lanx/IpGenAddr.h"

namespace Fdb {

using NextHopId = std::uint32_t;

struct NextHop {
    std::optional<Lanx::IpGenAddr> via;  // the VTEP
    std::vector<NextHopId> members;      // of a group
    bool isGroup = false;
};

using GroupMembers = std::vector<std::pair<NextHopId, Lanx::IpGenAddr>>;

struct GroupSink {
    virtual ~GroupSink() = default;
    virtual void groupIs(L2Rib::Source source, NextHopId group, const GroupMembers& members) = 0;
    virtual void groupDel(L2Rib::Source source, NextHopId group) = 0;
};

class NextHops {
 public:
    explicit NextHops(GroupSink& sink) : sink_(sink) {}

    void nextHopIs(NextHopId id, const NextHop& nextHop);
    // Also as a member of groups, of which the kernel tells apart.
    void nextHopDel(NextHopId id);
    bool isGroup(NextHopId id) const;
    // One host more, or less, of the source leads to the group.
    void use(L2Rib::Source source, NextHopId group);
    void release(L2Rib::Source source, NextHopId group);
    // Those that were not told since the dump began are gone; returns the groups among them.
    void dumpBegins() { told_.clear(); }
    std::vector<NextHopId> dumpEnds();

 private:
    GroupMembers membersOf(NextHopId group) const;
    void publish(NextHopId group);

    GroupSink& sink_;
    std::map<NextHopId, NextHop> nextHops_;
    std::set<NextHopId> told_;
    std::map<NextHopId, std::map<L2Rib::Source, std::uint64_t>> users_;  // of groups: how many hosts
};

}  // namespace Fdb
