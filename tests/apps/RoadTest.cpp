// The whole road with the real programs: agent, show, monitor; files and, where namespaces are allowed, the kernel.
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>

#include "support/Support.h"

namespace {

using Json = nlohmann::json;

class RoadTest : public testing::Test {
 protected:
    std::vector<std::string> agent(const std::string& fdb) {
        return {"l2ribd", "--root", scratch.path(), "--fdb", fdb, "--vlan", "br0=10"};
    }
    std::pair<int, std::string> tool(std::vector<std::string> words) {
        words.insert(words.begin(), {"l2rib", "--root", scratch.path()});
        return test::run(words);
    }
    test::ScratchDir scratch;
    const std::string recorded = std::string(L2RIB_TEST_DATA) + "/fdb/bridge-fdb.json";
};

TEST_F(RoadTest, ShowsWhatAFileHoldsWhileTheAgentLivesAndAfter) {
    test::Child daemon(agent(recorded));
    daemon.readUntil("ready, 13 hosts");
    const std::string expected =
        "VLAN  MAC                Flags  Source  Via            Pref  Seq  Type\n"
        "  10  02:00:00:00:01:01         bgp     vtep 10.0.0.2   100    0  remote\n"
        "Total 1 host";
    const std::string alone = expected + "; no agent answers: of the flags only S is known\n";
    EXPECT_EQ(tool({"host", "show", "source", "bgp"}), std::pair(0, expected + "\n"));
    const auto json = Json::parse(tool({"-j", "host", "show", "vlan", "10", "mac", "02:aa:aa:aa:aa:01"}).second);
    EXPECT_EQ(json["total"], 1);
    EXPECT_EQ(json["rows"][0].dump(),
              R"({"entryType":"dynamic","flags":"","mac":"02:aa:aa:aa:aa:01","preference":100,"seqNo":0,)"
              R"("source":"local-dynamic","via":{"name":"p2","type":"interface"},"vlan":10})");
    EXPECT_EQ(tool({"host", "show", "vlan", "7"}).first, 1);
    daemon.kill(SIGSTOP);  // whatever the agent is busy with
    EXPECT_EQ(tool({"host", "show", "source", "bgp"}), std::pair(0, alone));
    daemon.kill(SIGKILL);
    daemon.wait();
    EXPECT_EQ(tool({"host", "show", "source", "bgp"}), std::pair(0, alone));
    test::Child again(agent(recorded));
    again.readUntil("ready, 13 hosts");
    again.kill(SIGTERM);
    EXPECT_EQ(again.wait(), 0);
    EXPECT_EQ(tool({"host", "show", "source", "bgp"}), std::pair(0, alone));
}

TEST_F(RoadTest, TablesAreCheckedAndTheirReadersShown) {
    namespace fs = std::filesystem;
    EXPECT_EQ(tool({"table", "check"}), std::pair(2, "l2rib: table check: no tables under " + scratch.path() + "\n"));
    std::optional<test::Child> daemon(agent(recorded));
    daemon->readUntil("ready, 13 hosts");
    const std::string name = "l2rib/output/host/host", slots = scratch.path() + "/" + name + "/slots";
    {
        test::Child monitor({"l2rib", "--root", scratch.path(), "host", "monitor", "--current"});
        monitor.readUntil("sync-done");
        const auto readers = Json::parse(tool({"-j", "reader", "show", name}).second)["rows"][0];
        EXPECT_EQ(readers["writer"], true);
        ASSERT_EQ(readers["readers"].size(), 1u);
        if (test::hasThreads) {
            EXPECT_EQ(readers["readers"][0]["pid"], monitor.pid());
        }
        EXPECT_EQ(readers["readers"][0]["behind"], 0);
    }
    EXPECT_EQ(tool({"table", "check", name}), std::pair(0, name + ": sound, 13 entries\n"));
    const auto shown = Json::parse(tool({"-j", "table", "show", name}).second)["rows"][0];
    EXPECT_EQ(shown["occupiedSlots"], 13);
    EXPECT_EQ(shown["sequence"], 13);
    EXPECT_EQ(shown["writer"], true);
    daemon.reset();
    EXPECT_EQ(tool({"table", "check"}).first, 0);
    EXPECT_NE(tool({"reader", "show", name}).second.find("  no writer\n"), std::string::npos);

    // Each kind of damage has its line: the place, what was found, what was wanted.
    std::ifstream in(slots, std::ios::binary);
    const std::string whole{std::istreambuf_iterator<char>(in), {}};
    std::string looped = whole;
    looped.replace(192 + 136 + 4, 4, std::string(4, 0));  // slot 0 links to itself
    const std::pair<std::string, std::string> damages[] = {
        {"", "byte 0: no file slots, or it is empty"},
        {"#!/bin/sh\n", "byte 0: SlotTable::Header::validate() bad magic: 732f6e69622f2123"},
        {std::string(1000, '#'), "byte 0: SlotTable::Header::validate() bad magic: 2323232323232323"},
        {whole.substr(0, 5000),
         "byte 0: SlotTable::Header::validate() bad shmem size:5000 wanted:557384 for 4096 slots"},
        {looped, "byte 328, slot 0: Validator::markOccupied() duplicate slot: 0"}};
    for (const auto& [bytes, what] : damages) {
        std::ofstream(slots, std::ios::binary) << bytes;
        auto [status, line] = tool({"table", "check", name});
        EXPECT_EQ(status, 1);
        const std::string caller = "Validator::validate() Memtab " + name + " validation failed: ";
        if (const auto at = line.find(caller); at != std::string::npos) line.erase(at, caller.size());
        EXPECT_EQ(line, name + ": " + slots + ", " + what + "\n");
        const auto [failed, said] = tool({"host", "show"});
        EXPECT_EQ(failed, 2);
        EXPECT_EQ(said.find("no table"), std::string::npos) << said;
    }
}

TEST_F(RoadTest, BadInputIsOneLineAndStatusTwo) {
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"host", "show", "vlan", "5000"}, "l2rib: host show: vlan 5000: VlanId::value < 1 or > 4094 not allowed\n"},
        {{"host", "show", "source", "all"}, "l2rib: host show: source all: no source of this name\n"},
        {{"host", "show", "vlan"}, "l2rib: host show: vlan: needs a value\n"},
        {{"host", "show", "port", "1"}, "l2rib: host show: port: no such selector (vlan, mac, source)\n"},
        {{"host", "show", "vlan", "1", "vlan", "2"}, "l2rib: host show: vlan: is given twice\n"},
        {{"host", "eat"}, "l2rib: host eat: no such command; see l2rib --help\n"},
        {{}, "l2rib: OBJECT and VERB are needed; see l2rib --help\n"},
    };
    for (const auto& [words, message] : cases) EXPECT_EQ(tool(words), std::pair(2, message));
    EXPECT_EQ(test::run({"l2ribd", "--root", scratch.path(), "--vlan", "br0=0"}),
              std::pair(2, std::string("l2ribd: --vlan br0=0: VlanId::value < 1 or > 4094 not allowed\n")));
    const auto missing = test::run(agent(scratch.path() + "/nothing"));
    EXPECT_EQ(missing.first, 2);
    std::ofstream(scratch.path() + "/object.json") << "{}";
    const auto object = test::run(agent(scratch.path() + "/object.json"));
    EXPECT_EQ(object.first, 2);
    EXPECT_NE(object.second.find("object.json: source: is missing"), std::string::npos) << object.second;
}

// Under a bridge of its own, which the test changes as a network would.
TEST_F(RoadTest, FollowsARealBridge) {
    const test::NetNs ns("road");
    if (!ns.exists()) GTEST_SKIP() << "network namespaces are not allowed here";
    const auto in = [&](const std::string& text) {
        if (!ns.run(text)) throw std::runtime_error(text);
    };
    in("ip link add br0 type bridge");
    in("ip link set br0 up");
    in("ip link add p1 type veth peer name p1x");
    in("ip link add p2 type veth peer name p2x");
    in("ip link add vx100 type vxlan id 100 local 10.0.0.1 dstport 4789 nolearning");
    for (const char* device : {"p1", "p2", "vx100"}) in(std::string("ip link set ") + device + " master br0 up");
    for (const char* device : {"p1x", "p2x"}) in(std::string("ip link set ") + device + " up");
    in("bridge fdb add 02:aa:aa:aa:aa:01 dev p1 master dynamic");

    test::Child daemon(ns.inside(agent("kernel")));
    daemon.readUntil("ready, ");
    test::Child monitor(
        {"l2rib", "--root", scratch.path(), "-j", "host", "monitor", "--current", "mac", "02:aa:aa:aa:aa:01"});
    const auto added = Json::parse(monitor.readUntil("\"add\""));
    EXPECT_EQ(added["via"]["name"], "p1");
    EXPECT_EQ(Json::parse(monitor.readUntil("sync-done"))["rows"], 1);

    in("bridge fdb replace 02:aa:aa:aa:aa:01 dev p2 master dynamic");
    const auto moved = Json::parse(monitor.readUntil("\"update\""));
    EXPECT_EQ(moved["via"]["name"], "p2");
    EXPECT_EQ(moved["old"]["via"]["name"], "p1");
    // It moves behind a VTEP: the local entry gives way to the bridge's half, the VXLAN half says where.
    in("bridge fdb replace 02:aa:aa:aa:aa:01 dev vx100 dst 10.0.0.2 self master extern_learn");
    const auto remote = Json::parse(monitor.readUntil("\"vtep\",\"address\":\"10.0.0.2\""));
    EXPECT_EQ(remote["source"], "bgp");
    in("bridge fdb del 02:aa:aa:aa:aa:01 dev vx100 dst 10.0.0.2 self master");
    EXPECT_EQ(Json::parse(monitor.readUntil("\"delete\""))["old"]["source"], "bgp");

    // Behind a group of next hops, where this kernel has them: one object for all hosts. Its last next hop takes it and
    // the entries along, of which the kernel says nothing.
    if (ns.run("ip nexthop add id 1 via 10.0.0.2 fdb")) {
        in("ip nexthop add id 2 via 10.0.0.3 fdb");
        in("ip nexthop add id 10 group 1/2 fdb");
        in("bridge fdb add 02:aa:aa:aa:aa:01 dev vx100 self extern_learn nhid 10");
        in("bridge fdb add 02:aa:aa:aa:aa:02 dev vx100 self extern_learn nhid 10");
        EXPECT_EQ(Json::parse(monitor.readUntil("\"add\""))["via"]["table"], "load-balance");
        const auto groups = [&] { return tool({"lb", "show"}).second; };
        EXPECT_NE(groups().find("{10.0.0.2, 10.0.0.3}      2  bgp, its lb 10"), std::string::npos) << groups();
        in("ip nexthop replace id 10 group 2 fdb");
        for (int i = 0; i < 100 && groups().find(" {10.0.0.3} ") == std::string::npos; ++i) usleep(20000);
        EXPECT_NE(groups().find(" {10.0.0.3} "), std::string::npos) << groups();
        in("ip nexthop del id 2");
        EXPECT_EQ(Json::parse(monitor.readUntil("\"delete\""))["old"]["via"]["table"], "load-balance");
        for (int i = 0; i < 100 && tool({"dest", "show"}).first != 1; ++i) usleep(20000);
        EXPECT_EQ(tool({"lb", "show"}).first + tool({"dest", "show"}).first, 2);
    }

    // A flood of changes that the agent sleeps through, larger than any buffer: it ends with the kernel's table.
    in("bridge fdb add 02:aa:aa:aa:aa:01 dev p1 master static");
    monitor.readUntil("\"add\"");
    daemon.kill(SIGSTOP);
    const std::string batch = scratch.path() + "/batch";
    {
        std::ofstream out(batch);
        for (const char* verb : {"add", "del", "add", "del"}) {
            for (int i = 0; i < 12000; ++i) {
                out << "fdb " << verb << " "
                    << Lanx::EthAddr::fromNumber(0x020000000000ULL + static_cast<unsigned>(i)).str()
                    << " dev p1 master static\n";
            }
        }
    }
    in("bridge -batch " + batch);
    in("bridge fdb del 02:aa:aa:aa:aa:01 dev p1 master");
    daemon.kill(SIGCONT);
    monitor.readUntil("\"delete\"");
    for (int i = 0; i < 100 && tool({"host", "show", "source", "local-static"}).first != 1; ++i) usleep(100000);
    EXPECT_EQ(tool({"host", "show", "source", "local-static"}).first, 1);
    daemon.kill(SIGTERM);
    EXPECT_EQ(daemon.wait(), 0) << daemon.rest();
}

}  // namespace
