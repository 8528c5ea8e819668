#include "fdb/NextHops.h"

#include <algorithm>

#include "L2Rib/LoadBalance.h"

namespace Fdb {

void NextHops::nextHopIs(NextHopId id, const NextHop& nextHop) {
    nextHops_[id] = nextHop;
    told_.insert(id);
    publish(id);
    for (const auto& [group, other] : nextHops_) {
        if (std::find(other.members.begin(), other.members.end(), id) != other.members.end()) publish(group);
    }
}

void NextHops::nextHopDel(NextHopId id) {
    nextHops_.erase(id);
    told_.erase(id);
    publish(id);
    for (auto& [group, nextHop] : nextHops_) {
        if (std::erase(nextHop.members, id) > 0) publish(group);
    }
}

bool NextHops::isGroup(NextHopId id) const {
    const auto found = nextHops_.find(id);
    return found != nextHops_.end() && found->second.isGroup;
}

void NextHops::use(L2Rib::Source source, NextHopId group) {
    std::uint64_t& hosts = users_[group][source];
    if (hosts == 0) sink_.groupIs(source, group, membersOf(group));
    ++hosts;
}

void NextHops::release(L2Rib::Source source, NextHopId group) {
    const auto users = users_.find(group);
    if (users == users_.end() || --users->second[source] > 0) return;
    sink_.groupDel(source, group);
    users->second.erase(source);
    if (users->second.empty()) users_.erase(users);
}

std::vector<NextHopId> NextHops::dumpEnds() {
    std::vector<NextHopId> gone, groups;
    for (const auto& [id, nextHop] : nextHops_) {
        if (told_.contains(id)) continue;
        gone.push_back(id);
        if (nextHop.isGroup) groups.push_back(id);
    }
    for (const NextHopId id : gone) nextHopDel(id);
    return groups;
}

GroupMembers NextHops::membersOf(NextHopId group) const {
    GroupMembers members;
    const auto found = nextHops_.find(group);
    if (found == nextHops_.end()) return members;
    for (const NextHopId id : found->second.members) {
        const auto member = nextHops_.find(id);
        const bool isVtep = member != nextHops_.end() && member->second.via;
        if (isVtep && members.size() < L2Rib::LoadBalance::MemberArray::capacity) {
            members.emplace_back(id, *member->second.via);
        }
    }
    return members;
}

void NextHops::publish(NextHopId group) {
    const auto users = users_.find(group);
    if (users == users_.end()) return;
    for (const auto& [source, hosts] : users->second) sink_.groupIs(source, group, membersOf(group));
}

}  // namespace Fdb
