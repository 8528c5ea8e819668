// FdbModel: what the kernel's bridge and VXLAN forwarding tables say, turned into hosts per source.
//
// Owner     One producer; a kernel or a file feeds it links and entries, a sink receives the hosts.
// Threads   Event-loop thread. It owns no socket and asks no clock but the one it is given.
//
//   entry                                                      source              entry type     destination
//   bridge port (not VXLAN), REACHABLE or STALE                sourceLocalDynamic  dynamic        interface
//   bridge port (not VXLAN), NOARP                             sourceLocalStatic   static         interface
//   port or bridge, PERMANENT, the device's own MAC            sourceRouterMac     router         CPU
//   port or bridge, PERMANENT, another MAC                     sourceLocalStatic   static         CPU
//   VXLAN, SELF, EXT_LEARNED, DST                              sourceBgp           remote         VTEP
//   VXLAN, SELF, sticky and NOARP, DST                         sourceBgp           remote static  VTEP
//   VXLAN, SELF, PERMANENT or NOARP, DST                       sourceVxlanStatic   remote static  VTEP
//   VXLAN, SELF, REACHABLE or STALE, no flags, DST             sourceLocalDynamic  remote         VTEP
//   VXLAN, SELF, MAC zero, DST an IPv4 address                 a destination of the flood set of its VLAN, of the same
//                                                              sources
//   as the four above, with a group of next hops for a DST     the same           the same       load-balance group
//   VXLAN, SELF, another MAC zero, or with an unknown group    counted only
//   locked; multicast MACs; SELF on other devices; EXT_LEARNED
//   on a device that a consumer programs                       ignored
//
// A remote MAC has two halves: the bridge's entry on the VXLAN port and the VXLAN entry with the VTEP, which is the
// host, whatever the state of the bridge's half. A VXLAN half whose bridge half stands on another port is stale (the
// host moved here): counted only.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include "L2Rib/Host.h"
#include "L2Rib/Source.h"
#include "Quil/Clock.h"
#include "fdb/NextHops.h"

namespace Fdb {

struct Link {
    Quil::String name;
    bool isVxlan = false;
    std::uint32_t master = 0;  // interface index of the bridge; 0: none
    Lanx::EthAddr address;
};

struct Entry {
    std::uint32_t device = 0;  // interface index
    std::uint32_t bridge = 0;  // NDA_MASTER; 0 in an entry of the device itself
    Lanx::EthAddr mac;
    std::uint16_t vlan = 0;      // 0: none given
    std::uint16_t state = 0;     // NUD_* of linux/neighbour.h
    std::uint8_t flags = 0;      // NTF_*
    std::uint32_t flagsExt = 0;  // NTF_EXT_*
    std::uint32_t srcVni = 0;
    std::uint32_t nextHopGroup = 0;  // NDA_NH_ID
    std::optional<Lanx::IpGenAddr> dst;
    bool isSelf() const;
};

struct Sink : GroupSink {
    virtual void hostIs(L2Rib::Source source, const L2Rib::Host& host) = 0;
    virtual void hostDel(L2Rib::Source source, const Bridging::MacVlanPair& key) = 0;
    // Unknown and broadcast traffic of the VLAN goes to this VTEP, too.
    virtual void floodIs(L2Rib::Source source, Bridging::VlanId vlanId, const Lanx::IpGenAddr& vtep) = 0;
    virtual void floodDel(L2Rib::Source source, Bridging::VlanId vlanId, const Lanx::IpGenAddr& vtep) = 0;
};

struct Settings {
    std::map<Quil::String, std::uint16_t> vlanOfBridge;  // for entries without a VLAN; default 1
    std::set<Lanx::EthAddr> ownAddresses;                // beside the devices' own
    std::set<Quil::String> programmedDevices;            // their EXT_LEARNED entries come from a consumer: ignored
};

// How many entries stand at present that publish nothing.
struct Statistics {
    std::int64_t floodEntries = 0;         // without an IPv4 address, or of no source
    std::int64_t nextHopGroupEntries = 0;  // of groups that are not known
    std::int64_t staleRemotes = 0;         // VXLAN halves whose host is on a port here
};

class Model {
 public:
    Model(Settings settings, Quil::Ptr<Quil::Clock> clock, Sink& sink)
        : settings_(std::move(settings)), clock_(std::move(clock)), sink_(sink), nextHops_(sink) {}

    void linkIs(std::uint32_t index, const Link& link);
    // With the entries of the device. Permanent ones stay: the kernel hands them over to the bridge, or tells of their
    // deletion; a dump settles it.
    void linkDel(std::uint32_t index);
    void entryIs(const Entry& entry);  // replaces the entry of the same place
    void entryDel(const Entry& entry);
    void nextHopIs(NextHopId id, const NextHop& nextHop);
    // With the entries that lead to it: the kernel removes them without a word.
    void nextHopDel(NextHopId id);
    // Between the two, everything that is there is told again; what was not told is gone then.
    void dumpBegins();
    void dumpEnds();

    const Statistics& statistics() const { return statistics_; }
    const std::map<std::uint32_t, Link>& links() const { return links_; }

 private:
    // Where an entry stands: the bridge has one per MAC and VLAN, a VXLAN device one per MAC and VNI, but as many flood
    // entries as destinations.
    struct Place {
        bool isSelf;
        std::uint32_t home;  // bridge or device
        std::uint32_t vlanOrVni;
        std::optional<Lanx::IpGenAddr> floodDst;
        bool operator<(const Place& other) const;
    };
    struct Known {
        Entry entry;
        std::uint64_t dump;  // in which it was last told
    };
    using HostId = std::pair<L2Rib::Source, Bridging::MacVlanPair>;
    using Flood = std::tuple<L2Rib::Source, Bridging::VlanId, Lanx::IpGenAddr>;
    struct PerMac {
        std::map<Place, Known> entries;
        std::map<HostId, L2Rib::Host> published;
        std::set<Flood> floods;
        Statistics share;
    };
    struct Found {  // what the entries of one MAC amount to
        std::map<HostId, L2Rib::Host> hosts;
        std::set<Flood> floods;
        Statistics share;
    };

    static Place placeOf(const Entry& entry);
    const Link& link(std::uint32_t index) const;
    std::uint16_t vlanOf(std::uint32_t bridge, std::uint16_t given) const;
    bool isOwnAddress(const Entry& entry) const;
    bool isHalfOfRemote(const Entry& entry, const PerMac& all) const;
    void addBridgeEntry(const Entry& entry, const PerMac& all, Found& found) const;
    void addVxlanEntry(const Entry& entry, const PerMac& all, Found& found) const;
    void addFlood(const Entry& entry, Found& found) const;
    std::vector<std::uint16_t> vlansOfRemote(const Entry& entry, const PerMac& all) const;
    void addHost(Found& found, L2Rib::Source source, Bridging::EntryType type, const Entry& entry, std::uint16_t vlan,
                 const L2Rib::CiDest& dest, NextHopId group = 0) const;
    void evaluateUsersOf(NextHopId group);
    void forgetEntriesOf(NextHopId group);
    void evaluate(const Lanx::EthAddr& mac);
    void evaluate(const std::vector<Lanx::EthAddr>& macs);
    void publishHosts(PerMac& all, Found& found);
    void publishFloods(PerMac& all, const Found& found);
    void evaluateAll();

    const Settings settings_;
    const Quil::Ptr<Quil::Clock> clock_;
    Sink& sink_;
    NextHops nextHops_;
    std::map<std::uint32_t, Link> links_;
    std::map<std::uint32_t, std::uint64_t> linkDump_;  // in which each was last told
    std::map<Lanx::EthAddr, PerMac> macs_;
    Statistics statistics_;
    std::uint64_t dump_ = 0;
};

}  // namespace Fdb
