// NextHopGroups: the kernel's groups of next hops that this process makes for objects that lead to several VTEPs: one
// for all hosts of an object, so that a change of the object is one request.
//
// What processes of this kind make bears their protocol number, and what is ours an identifier of a range that is made
// from a name; so it is known again after a crash: a group that is left over is taken for an object with the same
// VTEPs.
//
// Deleting a group makes the kernel delete the forwarding entries that lead to it: so it is done only when none does.
//
// Threads   Event-loop thread; a request blocks for the time the kernel takes.
// Errors    Nothing is raised after the construction: what the kernel refuses is counted and traced.
#pragma once

#include <map>
#include <set>

#include "L2Rib/ObjTuple.h"
#include "Quil/Counter.h"
#include "common/Netlink.h"

namespace KernelFdb {

class NextHopGroups {
 public:
    using Id = std::uint32_t;
    using Vteps = std::set<Lanx::IpGenAddr>;
    static constexpr std::uint8_t protocol = 76;  // of those that linux/rtnetlink.h leaves to users

    explicit NextHopGroups(const Quil::String& name);  // SystemException when netlink is not to be had

    // The group for this object, which leads to these VTEPs now. 0 when the kernel does not make it, as it never does
    // of IPv4 and IPv6 together.
    Id groupOf(const L2Rib::ObjTuple& object, const Vteps& vteps);
    // The names of objects stand for others from now on: a group goes by where it leads, until an object has taken it.
    void forgetObjects() { groups_.clear(); }
    // Whether a process of this kind has made it.
    bool isOfOurKind(Id group) const { return ofOurKind_.contains(group); }
    // Reads what the kernel has; makes again what it lacks.
    void look();
    // Removes the groups that are not wanted, and their next hops; none that is in use.
    void sweep(const std::set<Id>& wanted, const std::set<Id>& inUse);
    bool hasFailed() const { return hasFailed_; }

 private:
    using Members = std::set<Id>;
    struct Group {
        Id id = 0;
        Vteps vteps;
    };

    static constexpr Id rangeSize = 1 << 12;
    bool isInRange(Id id) const { return id >= first_ && id < first_ + rangeSize; }
    Id freeId();  // 0 when there is none
    Id memberFor(const Lanx::IpGenAddr& vtep);
    bool make(Id id, const Vteps& vteps);
    Vteps vtepsOf(const Members& members) const;
    Id leftBehind(const Vteps& vteps) const;
    bool isAssigned(Id id) const;
    void remove(Id id);
    int request(std::uint16_t type, std::uint16_t flags, Id id, const Lanx::IpGenAddr* via, const Members* members);
    void fail(const Quil::String& what, int error);

    Netlink::Socket socket_;
    std::map<L2Rib::ObjTuple, Group> groups_;
    std::map<Id, Members> kernelGroups_;           // ours
    std::map<Id, Lanx::IpGenAddr> kernelMembers_;  // ours
    std::set<Id> ofOurKind_;                       // groups
    std::set<Id> taken_;                           // by anybody
    const Id first_;
    Id lastId_;
    bool hasFailed_ = false;
    Quil::Counter made_{"kernelFdbGroupsMade"}, removed_{"kernelFdbGroupsRemoved"};
};

}  // namespace KernelFdb
