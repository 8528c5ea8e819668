// What forwarding entries become: every row of the mapping, the two halves of a remote MAC, files good and bad.
#include <linux/neighbour.h>

#include <fstream>
#include <sstream>

#include "common/Names.h"
#include "fdb/JsonFdb.h"
#include "support/Support.h"

namespace {

using Fdb::Entry;

class FdbTest : public testing::Test, public Fdb::Sink {
 protected:
    enum : std::uint32_t { br0 = 1, p1 = 2, p2 = 3, vx = 4, other = 5 };

    FdbTest() {
        model.linkIs(br0, {"br0", false, 0, mac("02:00:00:00:00:b0")});
        model.linkIs(p1, {"p1", false, br0, mac("02:00:00:00:00:b1")});
        model.linkIs(p2, {"p2", false, br0, mac("02:00:00:00:00:b2")});
        model.linkIs(vx, {"vx100", true, br0, mac("02:00:00:00:00:b4")});
        model.linkIs(other, {"eth0", false, 0, {}});
    }
    void hostIs(L2Rib::Source source, const L2Rib::Host& host) override {
        hosts[{source, host.key()}] = host;
        log += "+";
    }
    void hostDel(L2Rib::Source source, const Bridging::MacVlanPair& key) override {
        hosts.erase({source, key});
        log += "-";
    }
    void floodIs(L2Rib::Source source, Bridging::VlanId vlanId, const Lanx::IpGenAddr& vtep) override {
        floods.insert(Quil::cat(Apps::sourceName(source), " ", vlanId, " ", vtep));
    }
    void floodDel(L2Rib::Source source, Bridging::VlanId vlanId, const Lanx::IpGenAddr& vtep) override {
        floods.erase(Quil::cat(Apps::sourceName(source), " ", vlanId, " ", vtep));
    }
    void groupIs(L2Rib::Source source, Fdb::NextHopId group, const Fdb::GroupMembers& members) override {
        std::string text;
        for (const auto& [id, vtep] : members) text += Quil::cat(text.empty() ? "" : ",", id, ":", vtep);
        groups[Quil::cat(Apps::sourceName(source), " ", group)] = text;
        log += "g";
    }
    void groupDel(L2Rib::Source source, Fdb::NextHopId group) override {
        groups.erase(Quil::cat(Apps::sourceName(source), " ", group));
        log += "d";
    }
    static Lanx::EthAddr mac(const char* text) { return Lanx::EthAddr(Quil::String(text)); }
    static Entry bridge(std::uint32_t device, const char* address, std::uint16_t state, std::uint8_t flags = 0) {
        Entry entry;
        entry.device = device;
        entry.bridge = br0;
        entry.mac = mac(address);
        entry.state = state;
        entry.flags = flags;
        return entry;
    }
    static Entry vxlan(const char* address, std::uint16_t state, std::uint8_t flags, const char* dst = "10.0.0.2") {
        Entry entry = bridge(vx, address, state, static_cast<std::uint8_t>(flags | NTF_SELF));
        entry.bridge = 0;
        if (dst) entry.dst = Lanx::IpGenAddr(Quil::String(dst));
        return entry;
    }
    // "source type seqNo destination" of the hosts, in order.
    std::string published() const {
        std::string out;
        for (const auto& [id, host] : hosts) {
            const auto& d = host.ciDest();
            const std::string where = d.destType() == L2Rib::destTypeCpu    ? "cpu"
                                      : d.destType() == L2Rib::destTypeIntf ? d.intf().str()
                                                                            : d.vtepAddr(L2Rib::CiVtepIndex(0)).str();
            out += Quil::cat(Apps::sourceName(id.first), " ", Apps::entryTypeName(host.entryType()), " ", host.seqNo(),
                             " ", where, ";");
        }
        return out;
    }

    Quil::Ptr<Quil::ManualClock> clock = Quil::makePtr<Quil::ManualClock>();
    std::map<std::pair<L2Rib::Source, Bridging::MacVlanPair>, L2Rib::Host> hosts;
    std::set<std::string> floods;
    std::map<std::string, std::string> groups;
    std::string log;
    Fdb::Model model{{{{"br0", 10}}, {}, {"vx200"}}, clock, *this};
};

constexpr const char* host1 = "02:aa:aa:aa:aa:01";

TEST_F(FdbTest, EveryRowOfTheMapping) {
    Entry locked = bridge(p1, host1, NUD_REACHABLE), group = vxlan(host1, NUD_REACHABLE, 0, nullptr);
    locked.flagsExt = 2;
    group.nextHopGroup = 100;
    Entry self = bridge(other, host1, NUD_PERMANENT, NTF_SELF);
    self.bridge = 0;
    const struct {
        Entry entry;
        const char* expected;
    } cases[] = {
        {bridge(p1, host1, NUD_REACHABLE), "local-dynamic dynamic 0 Ethernet2;"},
        {bridge(p1, host1, NUD_STALE, NTF_EXT_LEARNED), "local-dynamic dynamic 0 Ethernet2;"},
        {bridge(p1, host1, NUD_NOARP, NTF_STICKY), "local-static static 1 Ethernet2;"},
        {bridge(p1, "02:00:00:00:00:b1", NUD_PERMANENT), "router-mac router 1 cpu;"},
        {bridge(br0, "02:00:00:00:00:b0", NUD_PERMANENT), "router-mac router 1 cpu;"},
        {bridge(vx, "02:00:00:00:00:b4", NUD_PERMANENT), "router-mac router 1 cpu;"},
        {bridge(p1, host1, NUD_PERMANENT), "local-static static 1 cpu;"},
        {locked, ""},
        {vxlan(host1, NUD_REACHABLE, NTF_EXT_LEARNED), "bgp remote 0 10.0.0.2;"},
        {vxlan(host1, NUD_NOARP, NTF_STICKY), "bgp remote-static 1 10.0.0.2;"},
        {vxlan(host1, NUD_PERMANENT, 0, "2001:db8::1"), "vxlan-static remote-static 1 2001:db8::1;"},
        {vxlan(host1, NUD_NOARP, 0), "vxlan-static remote-static 1 10.0.0.2;"},
        {vxlan(host1, NUD_STALE, 0), "local-dynamic remote 0 10.0.0.2;"},
        {vxlan(host1, NUD_REACHABLE, NTF_ROUTER), ""},
        {vxlan(host1, NUD_REACHABLE, 0, nullptr), ""},
        {vxlan("00:00:00:00:00:00", NUD_PERMANENT, 0, "2001:db8::1"), ""},
        {group, ""},
        {self, ""},
        {bridge(p1, "33:33:00:00:00:01", NUD_PERMANENT), ""},
    };
    // What a consumer of the table programs into a device is no source of it.
    model.linkIs(vx + 100, {"vx200", true, br0, {}});
    Entry programmed = vxlan(host1, NUD_REACHABLE, NTF_EXT_LEARNED);
    programmed.device = vx + 100;
    model.entryIs(programmed);
    EXPECT_EQ(published(), "");
    model.entryDel(programmed);
    int row = 0;
    for (const auto& [entry, expected] : cases) {
        model.entryIs(entry);
        EXPECT_EQ(published(), expected) << "row " << row;
        EXPECT_EQ(model.statistics().floodEntries, row == 15 ? 1 : 0);
        EXPECT_EQ(model.statistics().nextHopGroupEntries, row == 16 ? 1 : 0);
        model.entryDel(entry);
        EXPECT_TRUE(hosts.empty()) << "row " << row;
        ++row;
    }
    EXPECT_EQ(model.statistics().floodEntries, 0);
    EXPECT_EQ(model.statistics().nextHopGroupEntries, 0);
}

TEST_F(FdbTest, EntriesOfTheZeroAddressAreFloodSetsOfTheirSources) {
    const Entry one = vxlan("00:00:00:00:00:00", NUD_PERMANENT, 0),
                two = vxlan("00:00:00:00:00:00", NUD_PERMANENT, 0, "10.0.0.3"),
                learned = vxlan("00:00:00:00:00:00", NUD_NOARP, NTF_EXT_LEARNED, "10.0.0.4");
    for (const Entry& entry : {one, two, learned}) model.entryIs(entry);
    EXPECT_EQ(floods,
              (std::set<std::string>{"bgp 10 10.0.0.4", "vxlan-static 10 10.0.0.2", "vxlan-static 10 10.0.0.3"}));
    model.linkIs(br0, {"br1", false, 0, {}});  // its VLAN is the default
    EXPECT_EQ(floods, (std::set<std::string>{"bgp 1 10.0.0.4", "vxlan-static 1 10.0.0.2", "vxlan-static 1 10.0.0.3"}));
    model.entryDel(two);
    model.linkDel(vx);
    EXPECT_TRUE(floods.empty());
}

TEST_F(FdbTest, AGroupOfNextHopsIsOneGroupForAllItsHostsAndTakesThemAlong) {
    const auto behind = [](const char* address, std::uint32_t group, std::uint8_t flags = NTF_EXT_LEARNED) {
        Entry entry = vxlan(address, NUD_PERMANENT, flags, nullptr);
        entry.nextHopGroup = group;
        return entry;
    };
    const auto vtep = [](const char* text) { return Fdb::NextHop{Lanx::IpGenAddr(Quil::String(text)), {}, false}; };
    const char* const host2 = "02:aa:aa:aa:aa:02";
    model.entryIs(behind(host1, 10));
    EXPECT_EQ(model.statistics().nextHopGroupEntries, 1);  // the group comes later than the entry
    model.nextHopIs(1, vtep("10.0.0.2"));
    model.nextHopIs(2, vtep("10.0.0.3"));
    model.nextHopIs(10, {{}, {1, 2, 77}, true});
    model.entryIs(behind(host2, 10));
    EXPECT_EQ(log, "g++");
    EXPECT_EQ(groups, (std::map<std::string, std::string>{{"bgp 10", "1:10.0.0.2,2:10.0.0.3"}}));
    EXPECT_EQ(hosts.begin()->second.next(), L2Rib::ObjTuple(L2Rib::ObjId(10), L2Rib::tableTypeLoadBalance));
    EXPECT_EQ(model.statistics().nextHopGroupEntries, 0);
    model.nextHopIs(10, {{}, {2}, true});  // one write, whatever the hosts
    EXPECT_EQ(std::exchange(log, ""), "g++g");
    EXPECT_EQ(groups["bgp 10"], "2:10.0.0.3");
    // A host leaves the group for a VTEP, and comes back as one of another source.
    model.entryIs(vxlan(host1, NUD_REACHABLE, NTF_EXT_LEARNED));
    model.entryIs(behind(host1, 10, 0));
    EXPECT_EQ(std::exchange(log, ""), "+g+-");
    EXPECT_EQ(groups.size(), 2u);
    model.nextHopDel(2);  // the last one: the kernel removes group and entries, and tells of the group alone
    EXPECT_EQ(groups["vxlan-static 10"], "");
    model.nextHopDel(10);
    EXPECT_TRUE(hosts.empty() && groups.empty());
    // After a dump in which the group is not told.
    model.nextHopIs(1, vtep("10.0.0.2"));
    model.nextHopIs(10, {{}, {1}, true});
    model.entryIs(behind(host1, 10));
    EXPECT_EQ(hosts.size(), 1u);
    model.dumpBegins();
    model.linkIs(vx, {"vx100", true, br0, {}});
    model.entryIs(behind(host1, 10));
    model.dumpEnds();
    EXPECT_TRUE(hosts.empty() && groups.empty());
}

TEST_F(FdbTest, ARemoteHostMovesHereAndBack) {
    model.entryIs(vxlan(host1, NUD_REACHABLE, NTF_EXT_LEARNED));
    model.entryIs(bridge(vx, host1, NUD_REACHABLE, NTF_EXT_LEARNED));
    EXPECT_EQ(published(), "bgp remote 0 10.0.0.2;");
    model.entryIs(bridge(p1, host1, NUD_REACHABLE));  // the kernel tells nothing of the half on vx100
    EXPECT_EQ(published(), "local-dynamic dynamic 0 Ethernet2;");
    EXPECT_EQ(model.statistics().staleRemotes, 1);
    Entry locked = bridge(p1, host1, NUD_REACHABLE);
    locked.flagsExt = 2;  // a locked entry is nobody's host, not even as a hint that the host is here
    model.entryIs(locked);
    EXPECT_EQ(published(), "bgp remote 0 10.0.0.2;");
    model.entryIs(bridge(vx, host1, NUD_PERMANENT));  // as "bridge fdb add ... self master" leaves it
    EXPECT_EQ(published(), "bgp remote 0 10.0.0.2;");
    EXPECT_EQ(model.statistics().staleRemotes, 0);
}

TEST_F(FdbTest, VlansComeFromTheEntryItsHalfOrTheBridge) {
    Entry tagged = bridge(p1, host1, NUD_REACHABLE);
    tagged.vlan = 20;
    model.entryIs(tagged);
    EXPECT_EQ(hosts.begin()->first.second.vlanId().value(), 20);
    model.entryDel(tagged);
    model.entryIs(vxlan(host1, NUD_REACHABLE, NTF_EXT_LEARNED));
    EXPECT_EQ(hosts.begin()->first.second.vlanId().value(), 10);
    Entry half = bridge(vx, host1, NUD_REACHABLE, NTF_EXT_LEARNED);
    half.vlan = 30;
    model.entryIs(half);
    ASSERT_EQ(hosts.size(), 1u);
    EXPECT_EQ(hosts.begin()->first.second.vlanId().value(), 30);
}

TEST_F(FdbTest, KeepsTheTimeOfTheLastMoveAndSaysNothingTwice) {
    clock->nowIs(5);
    model.entryIs(bridge(p1, host1, NUD_REACHABLE));
    clock->nowIs(9);
    model.entryIs(bridge(p1, host1, NUD_STALE));
    EXPECT_EQ(log, "+");
    EXPECT_EQ(hosts.begin()->second.lastMoveTime(), 5);
    model.entryIs(bridge(p2, host1, NUD_REACHABLE));
    EXPECT_EQ(log, "++");
    EXPECT_EQ(hosts.begin()->second.lastMoveTime(), 9);
}

TEST_F(FdbTest, ADumpSweepsAwayWhatItDidNotTell) {
    model.entryIs(bridge(p1, host1, NUD_REACHABLE));
    model.entryIs(bridge(p1, "02:aa:aa:aa:aa:02", NUD_REACHABLE));
    model.dumpBegins();
    model.linkIs(br0, {"br0", false, 0, {}});
    model.linkIs(p1, {"p1", false, br0, {}});
    model.entryIs(bridge(p1, host1, NUD_REACHABLE));
    model.dumpEnds();
    EXPECT_EQ(hosts.size(), 1u);
    EXPECT_EQ(model.links().size(), 2u);
    EXPECT_EQ(log, "++-");
}

TEST_F(FdbTest, ADeletedDeviceTakesItsHostsAlong) {
    model.entryIs(bridge(p1, host1, NUD_REACHABLE));
    model.entryIs(bridge(p1, "02:00:00:00:00:b1", NUD_PERMANENT));
    model.linkDel(p1);
    EXPECT_EQ(published(), "local-static static 1 cpu;") << "the kernel may have handed the permanent entry to br0";
    model.entryDel(bridge(br0, "02:00:00:00:00:b1", NUD_PERMANENT));
    EXPECT_TRUE(hosts.empty());
}

class JsonTest : public FdbTest {
 protected:
    Fdb::Model fresh{{{{"br0", 10}}, {mac("0a:13:ab:1e:fc:62")}, {}}, clock, *this};
    std::string reports;
    void load(const std::string& text) {
        const auto rows = Apps::Json::parse(text);
        loader.loadLinks(rows);
        loader.loadEntries(rows, [&](const Quil::String& what) { reports += what + "\n"; });
    }
    Apps::InterfaceNames names;
    Fdb::JsonFdb loader{{}, fresh, names};
};

TEST_F(JsonTest, ReadsARecordedTable) {
    for (const char* name : {"/fdb/bridge-fdb.json", "/fdb/bridge-fdb-detail.json"}) {
        std::ifstream file(std::string(L2RIB_TEST_DATA) + name);
        std::ostringstream text;
        text << file.rdbuf();
        load(text.str());
        EXPECT_EQ(reports, "");
        std::map<std::string, int> perSource;
        for (const auto& [id, host] : hosts) ++perSource[Apps::sourceName(id.first)];
        EXPECT_EQ(perSource,
                  (std::map<std::string, int>{
                      {"bgp", 1}, {"local-dynamic", 4}, {"local-static", 5}, {"router-mac", 1}, {"vxlan-static", 2}}));
        EXPECT_EQ(floods.size(), 3u);
        EXPECT_EQ(fresh.statistics().floodEntries, 0);
        EXPECT_EQ(fresh.statistics().nextHopGroupEntries, 1);
    }
}

TEST_F(JsonTest, ReportsMalformedRowsAndUsesTheRest) {
    const std::string deep(100000, '[');
    load(R"([{"mac":"02:aa:aa:aa:aa:01","ifname":"p1","master":"br0","flags":[],"state":""},
             {"mac":"xx","ifname":"p1","master":"br0"}, 7, {"ifname":"p1"},
             {"mac":"02:aa:aa:aa:aa:02","ifname":"p1","master":"br0","vlan":4095},
             {"mac":"02:aa:aa:aa:aa:02","ifname":"p1","master":"br0","vlan":")" +
         deep + R"("},
             {"mac":"02:aa:aa:aa:aa:02","ifname":"p1","master":"br0","state":"odd"},
             {"mac":"02:aa:aa:aa:aa:02","ifname":"p 1","master":"br0"},
             {"mac":"02:aa:aa:aa:aa:02","ifname":"v","dst":"10.0.0","flags":["self"]}])");
    EXPECT_EQ(hosts.size(), 1u);
    EXPECT_EQ(reports,
              "row 1: mac: 'xx' is not a MAC address (xx:xx:xx:xx:xx:xx)\n"
              "row 2: is not an object\n"
              "row 3: mac: is missing\n"
              "row 4: vlan: VlanId::value < 1 or > 4094 not allowed\n"
              "row 5: vlan: is not a number from 0 to 65535\n"
              "row 6: state: 'odd' is not a state\n"
              "row 7: ifname: is not the name of an interface\n"
              "row 8: dst: '10.0.0' is not an IP address\n");
}

}  // namespace
