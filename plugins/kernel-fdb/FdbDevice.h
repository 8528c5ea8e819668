// FdbDevice.h: one VXLAN device whose forwarding entries this process makes: what is wanted, what the kernel has, and
// how the two become alike.
//
// An entry has two halves: the device's own, with the VTEP or the group of next hops, and the bridge's, which leads to
// the device (none without a bridge). One RTM_NEWNEIGH makes both: state REACHABLE, flags SELF, MASTER and EXT_LEARNED.
//
// An entry that this process did not make is not touched. Its own are those that are noted and are in the kernel as
// they were noted: externally learned, with that VTEP, or with a group that a process of this kind has made. An entry
// that the bridge has merely learned gives way, as it does when a host moves; a static or permanent one does not. A
// host behind the device's own address is on this switch: it has no entry.
//
// Threads   Event-loop thread; a request blocks for the time the kernel takes.
// Errors    Nothing is raised after the construction: what the kernel refuses, or cannot be noted, is counted, and
//           hasFailed() says so until the next look.
#pragma once

#include <deque>
#include <functional>
#include <set>

#include "Quil/Counter.h"
#include "common/Netlink.h"
#include "plugins/kernel-fdb/NextHopGroups.h"
#include "plugins/kernel-fdb/Notes.h"

namespace KernelFdb {

// Where a host is reached: a VTEP, or a group of next hops.
struct Target {
    Lanx::IpGenAddr vtep;
    NextHopGroups::Id group = 0;
    friend bool operator==(const Target&, const Target&) = default;
};

class FdbDevice {
 public:
    using Wanted = std::map<Bridging::MacVlanPair, Target>;

    // vlan 0: hosts of all VLANs. SystemException when netlink or the file of notes is not to be had.
    FdbDevice(Quil::String name, std::uint16_t vlan, Quil::String notes, const NextHopGroups& groups);

    bool serves(const Bridging::MacVlanPair& key) const { return vlan_ == 0 || key.vlanId().value() == vlan_; }
    const Wanted& wanted() const { return wanted_; }
    const std::optional<Lanx::IpGenAddr>& local() const { return link_.local; }  // the VTEP of this switch
    // The groups that entries of any device led to at the last look.
    const std::set<NextHopGroups::Id>& groupsInUse() const { return groupsInUse_; }

    // The host is to be reached in this way; it is not to be reached here any more.
    void hostIs(const Bridging::MacVlanPair& key, const Target& target);
    void hostDel(const Bridging::MacVlanPair& key);

    // Reads the kernel's table; what differs waits for work(). mayGo: whether an entry that was noted and is not wanted
    // is known to be over, and not just not heard of yet.
    void look(const std::function<bool(const Bridging::MacVlanPair&)>& mayGo);
    // Mends some of what differs. Whether more is waiting.
    bool work();
    bool hasFailed() const { return hasFailed_; }

 private:
    static constexpr int entriesPerTurn = 256;

    struct Link {
        std::uint32_t index = 0;  // 0: there is no such VXLAN device
        std::uint32_t master = 0;
        std::optional<Lanx::IpGenAddr> local;
        bool isVlanAware = false;
    };
    struct Half {  // as the kernel has it
        bool isThere = false;
        std::uint32_t port = 0;
        std::uint16_t state = 0;
        std::uint8_t flags = 0;
        std::optional<Lanx::IpGenAddr> vtep;
        NextHopGroups::Id group = 0;
        bool leadsTo(const Target& target) const {
            return target.group != 0 ? group == target.group : vtep == target.vtep;
        }
    };
    struct Entry {
        Half own, bridge;
    };
    struct Table {  // a dump
        std::map<Lanx::EthAddr, Half> own;
        std::map<std::pair<Lanx::EthAddr, std::uint16_t>, Half> bridge;
        std::set<NextHopGroups::Id> groups;
    };

    bool readLink();
    bool readTable(Table& table) const;
    Entry entryIn(const Table& table, const Bridging::MacVlanPair& key) const;
    bool readEntry(const Bridging::MacVlanPair& key, Entry& entry);
    bool readHalf(const Bridging::MacVlanPair& key, std::uint8_t which, Half& half);
    static Half halfIn(const nlmsghdr* message);

    // How the host is to be reached from here.
    std::optional<Target> target(const Bridging::MacVlanPair& key) const;
    bool isOurs(const Half& own, const Bridging::MacVlanPair& key) const;
    bool leadsHere(const Half& bridge) const { return bridge.isThere && bridge.port == link_.index; }
    bool isRight(const Bridging::MacVlanPair& key, const Entry& entry) const;
    bool isSharedMac(const Bridging::MacVlanPair& key) const;
    void settle(const Bridging::MacVlanPair& key);
    void make(const Bridging::MacVlanPair& key, const Target& target, const Entry& entry);
    int makeRoom(const Bridging::MacVlanPair& key, const Target& target, const Half& own);
    void unmake(const Bridging::MacVlanPair& key, const Entry& entry);

    std::uint16_t vlanOf(const Bridging::MacVlanPair& key) const {
        return link_.isVlanAware ? key.vlanId().value() : std::uint16_t(0);
    }
    int request(std::uint16_t type, std::uint16_t flags, std::uint8_t halves, const Bridging::MacVlanPair& key,
                const Target& target = {}, const Netlink::Visit& answer = {});
    void fail(const Quil::String& what);
    void guarded(const std::function<void()>& run);

    const Quil::String name_;
    const std::uint16_t vlan_;
    Notes notes_;
    Netlink::Socket socket_;
    Link link_;
    const NextHopGroups& groups_;
    Wanted wanted_;
    std::set<NextHopGroups::Id> groupsInUse_;
    std::deque<Bridging::MacVlanPair> differing_;
    bool hasFailed_ = false;
    Quil::Counter made_{"kernelFdbMade"}, removed_{"kernelFdbRemoved"}, mended_{"kernelFdbMended"},
        foreign_{"kernelFdbForeign"}, errors_{"kernelFdbErrors"};
};

}  // namespace KernelFdb
