#include "plugins/kernel-fdb/NextHopGroups.h"

#include <linux/nexthop.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <vector>

#include "Quil/Exception.h"
#include "Quil/Trace.h"
#include "Verro/Hash.h"

namespace KernelFdb {

NextHopGroups::NextHopGroups(const Quil::String& name)
    : socket_(Netlink::open(0)),
      first_(0x40000000u | (Verro::Util::hash(name.data(), name.size()) & 0xffffu) * rangeSize),
      lastId_(first_) {
    look();
}

void NextHopGroups::fail(const Quil::String& what, int error) {
    hasFailed_ = true;
    Quil::Trace::handler("kernel-fdb").log(3, [&] { return Quil::cat(what, ": ", std::strerror(error)); });
}

int NextHopGroups::request(std::uint16_t type, std::uint16_t flags, Id id, const Lanx::IpGenAddr* via,
                           const Members* members) {
    std::vector<char> buffer(4096 + (members ? members->size() * sizeof(nexthop_grp) : 0));
    nlmsghdr* message = mnl_nlmsg_put_header(buffer.data());
    message->nlmsg_type = type;
    message->nlmsg_flags = flags;
    auto* header = static_cast<nhmsg*>(mnl_nlmsg_put_extra_header(message, sizeof(nhmsg)));
    header->nh_family = via ? (via->af() == Lanx::ipv4 ? AF_INET : AF_INET6) : AF_UNSPEC;
    header->nh_protocol = type == RTM_NEWNEXTHOP ? protocol : std::uint8_t(0);
    mnl_attr_put_u32(message, NHA_ID, id);
    if (type == RTM_NEWNEXTHOP) mnl_attr_put(message, NHA_FDB, 0, nullptr);
    if (via) mnl_attr_put(message, NHA_GATEWAY, via->af() == Lanx::ipv4 ? 4 : 16, via->bytes().data());
    if (members) {
        std::vector<nexthop_grp> group;
        for (const Id member : *members) group.push_back({member, 0, 0, 0});
        mnl_attr_put(message, NHA_GROUP, group.size() * sizeof(nexthop_grp), group.data());
    }
    try {
        return Netlink::request(socket_.get(), message);
    } catch (const Quil::SystemException&) {
        return errno != 0 ? errno : EIO;
    }
}

void NextHopGroups::look() {
    hasFailed_ = false;
    std::map<Id, Members> groups;
    std::map<Id, Lanx::IpGenAddr> members;
    std::set<Id> taken, ofOurKind;
    try {
        const bool isWhole = Netlink::dump(RTM_GETNEXTHOP, AF_UNSPEC, [&](const nlmsghdr* message) {
            const auto* header = static_cast<const nhmsg*>(mnl_nlmsg_get_payload(message));
            const Netlink::Attributes<NHA_FDB + 1> attributes(message, sizeof(nhmsg));
            const Id id = attributes.u32(NHA_ID);
            taken.insert(id);
            if (header->nh_protocol != protocol || !attributes.at[NHA_FDB]) return;
            if (attributes.at[NHA_GROUP]) ofOurKind.insert(id);
            if (!isInRange(id)) return;
            const auto via = Netlink::addressIn(attributes.at[NHA_GATEWAY]);
            if (via) members[id] = *via;
            if (attributes.at[NHA_GROUP]) {
                const auto list = Netlink::groupMembersIn(attributes.at[NHA_GROUP]);
                groups[id] = Members(list.begin(), list.end());
            }
        });
        if (!isWhole) return fail("the next hops cannot be read", EINTR);
    } catch (const Quil::SystemException& error) {
        return fail(error.what(), errno);
    }
    kernelGroups_ = std::move(groups);
    kernelMembers_ = std::move(members);
    taken_ = std::move(taken);
    ofOurKind_ = std::move(ofOurKind);
    for (const auto& [object, group] : groups_) taken_.insert(group.id);
    for (const auto& [object, group] : groups_) make(group.id, group.vteps);
}

NextHopGroups::Id NextHopGroups::freeId() {
    for (Id tries = 0; tries < rangeSize; ++tries) {
        lastId_ = isInRange(lastId_ + 1) ? lastId_ + 1 : first_;
        if (!taken_.contains(lastId_)) return lastId_;
    }
    fail("no identifier is left for a next hop", ENOSPC);
    return 0;
}

// 0 when the kernel does not make it.
NextHopGroups::Id NextHopGroups::memberFor(const Lanx::IpGenAddr& vtep) {
    for (const auto& [id, known] : kernelMembers_) {
        if (known == vtep) return id;
    }
    const Id id = freeId();
    if (id == 0) return 0;
    const int error = request(RTM_NEWNEXTHOP, NLM_F_CREATE | NLM_F_EXCL, id, &vtep, nullptr);
    if (error) return fail(Quil::cat("cannot make a next hop via ", vtep), error), 0;
    kernelMembers_[id] = vtep;
    taken_.insert(id);
    return id;
}

NextHopGroups::Vteps NextHopGroups::vtepsOf(const Members& members) const {
    Vteps vteps;
    for (const Id id : members) {
        const auto member = kernelMembers_.find(id);
        if (member != kernelMembers_.end()) vteps.insert(member->second);
    }
    return vteps;
}

// Whether the kernel has it as it is to be.
bool NextHopGroups::make(Id id, const Vteps& vteps) {
    const auto known = kernelGroups_.find(id);
    if (known != kernelGroups_.end() && vtepsOf(known->second) == vteps) return true;
    Members members;
    for (const auto& vtep : vteps) {
        const Id member = memberFor(vtep);
        if (member == 0) return false;
        members.insert(member);
    }
    const int error = request(RTM_NEWNEXTHOP, NLM_F_CREATE | NLM_F_REPLACE, id, nullptr, &members);
    if (error) return fail("cannot make a group of next hops", error), false;
    ++made_;
    kernelGroups_[id] = members;
    taken_.insert(id);
    ofOurKind_.insert(id);
    return true;
}

bool NextHopGroups::isAssigned(Id id) const {
    return std::any_of(groups_.begin(), groups_.end(), [&](const auto& item) { return item.second.id == id; });
}

NextHopGroups::Id NextHopGroups::leftBehind(const Vteps& vteps) const {
    for (const auto& [id, members] : kernelGroups_) {
        if (vtepsOf(members) == vteps && !isAssigned(id)) return id;
    }
    return 0;
}

NextHopGroups::Id NextHopGroups::groupOf(const L2Rib::ObjTuple& object, const Vteps& vteps) {
    const bool isOfOneFamily = vteps.begin()->af() == vteps.rbegin()->af();
    if (!isOfOneFamily) return groups_.erase(object), 0;
    Group& group = groups_[object];
    if (group.id == 0) group.id = leftBehind(vteps);
    if (group.id == 0) group.id = freeId();
    if (group.id == 0) return groups_.erase(object), 0;
    taken_.insert(group.id);
    group.vteps = vteps;
    return make(group.id, vteps) ? group.id : 0;
}

void NextHopGroups::remove(Id id) {
    const int error = request(RTM_DELNEXTHOP, 0, id, nullptr, nullptr);
    if (error && error != ENOENT) return fail(Quil::cat("cannot remove the next hop ", id), error);
    kernelGroups_.erase(id);
    kernelMembers_.erase(id);
    taken_.erase(id);
    ++removed_;
}

void NextHopGroups::sweep(const std::set<Id>& wanted, const std::set<Id>& inUse) {
    std::erase_if(groups_, [&](const auto& item) { return !wanted.contains(item.second.id); });
    std::set<Id> goes;
    for (const auto& [id, members] : kernelGroups_) {
        if (!isAssigned(id) && !inUse.contains(id)) goes.insert(id);
    }
    for (const Id id : goes) remove(id);
    std::set<Id> lonely;
    for (const auto& [id, vtep] : kernelMembers_) lonely.insert(id);
    for (const auto& [id, members] : kernelGroups_) {
        for (const Id member : members) lonely.erase(member);
    }
    for (const Id id : lonely) remove(id);
}

}  // namespace KernelFdb
