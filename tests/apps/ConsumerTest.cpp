// l2rib-consumer and the plug-ins we ship, with the agent, over files and in a network namespace.
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>

#include "L2Rib/Plugin/Loader.h"
#include "support/Support.h"

namespace {

using Json = nlohmann::json;
const std::string build = std::string(L2RIB_TEST_BIN) + "/..";

class ConsumerTest : public testing::Test {
 protected:
    void agent(const std::string& fdb, std::vector<std::string> more = {}) {
        daemon.reset();
        std::vector<std::string> words{"l2ribd", "--root", scratch.path(), "--fdb", fdb,
                                       "--vlan", "br0=10", "--hold",       "1"};
        words.insert(words.end(), more.begin(), more.end());
        daemon.emplace(words);
        daemon->readUntil("ready, ");
    }
    std::vector<std::string> consumer(std::vector<std::string> words) {
        words.insert(words.begin(), {"l2rib-consumer", "--root", scratch.path()});
        return words;
    }
    test::ScratchDir scratch;
    const std::string recorded = std::string(L2RIB_TEST_DATA) + "/fdb/bridge-fdb.json";
    std::optional<test::Child> daemon;
};

TEST_F(ConsumerTest, LoadsWhatItCanAndSaysWhatItCannot) {
    agent(recorded);
    const std::string bad = build + "/bad-plugins";
    std::ofstream(bad + "/text.so") << "this is no shared object\n";
    const auto [status, output] = test::run(consumer({"--plugin-dir", "bad-plugins", "--path", "/nowhere:" + build,
                                                      "--plugins", "text, OTHER_INTERFACE NO_ENTRY,THROWING,absent"}));
    EXPECT_EQ(status, 2);
    const std::string said = "l2rib-consumer: L2RibPluginLoader: plug-in ";
    for (const std::string& line :
         {said + "OTHER_INTERFACE: " + bad + "/libOTHER_INTERFACE.so is built for interface " +
              std::to_string(L2Rib::Plugin::interfaceNumber + 1) + ", not " +
              std::to_string(L2Rib::Plugin::interfaceNumber),
          said + "NO_ENTRY: " + bad + "/libNO_ENTRY.so has no l2ribPluginInit()",
          said + "THROWING: from its entry point",
          said + "absent: no libabsent.so or absent.so in /nowhere/bad-plugins, " + bad,
          said + "text: ", std::string("l2rib-consumer: no plug-in was loaded")}) {
        EXPECT_NE(output.find(line), std::string::npos) << line << "\n" << output;
    }
    EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 6) << output;
    EXPECT_EQ(test::run(consumer({"--plugin-dir", bad, "--source-filter", "bgp,nobody"})),
              std::pair(2, std::string("l2rib-consumer: --source-filter: nobody: no source of this name\n")));
    // One that works is loaded beside those that do not.
    test::Child works(consumer({"--plugin-dir", build + "/plugins", "--source-filter", "bgp"}));
    works.readUntil("ready, 1 plug-ins, 1 not loaded, 1 clients");  // kernel-fdb has no device to program
    const auto line = Json::parse(works.readUntil("\"add\""));
    EXPECT_EQ(line["mac"], "02:00:00:00:01:01");
    EXPECT_EQ(line["via"]["address"], "10.0.0.2");
    std::ofstream(scratch.path() + "/empty.json") << "[]";
    agent(scratch.path() + "/empty.json");
    EXPECT_EQ(Json::parse(works.readUntil("\"remove\""))["mac"], "02:00:00:00:01:01");
    works.kill(SIGTERM);
    EXPECT_EQ(works.wait(), 0) << works.rest();
}

// Whatever becomes of the agent: told is what differs, once.
TEST_F(ConsumerTest, ARestartOfTheAgentIsNotNoticed) {
    const auto file = [&](int lastVtep, std::vector<int> hosts) {
        Json rows = Json::array();
        for (const int n : hosts) {
            rows.push_back({{"vlan", 10}, {"mac", "02:aa:aa:aa:aa:0" + std::to_string(n)}});
            if (n < 3) {
                rows.back()["next"] = {{"table", "load-balance"}, {"id", 1}};
            } else {
                rows.back()["ciDest"] = {{"type", "vtep"}, {"address", "10.0.0.9"}};
            }
        }
        const std::string path = scratch.path() + "/restart.json";
        std::ofstream(path) << Json{
            {"source", "bgp"},
            {"hosts", rows},
            {"loadBalances", {{{"id", 1}, {"next", {{{"table", "dest"}, {"id", 1}}, {{"table", "dest"}, {"id", 2}}}}}}},
            {"dests",
             {{{"id", 1}, {"type", "vtep"}, {"address", "10.0.0.1"}},
              {{"id", 2}, {"type", "vtep"}, {"address", "10.0.0." + std::to_string(lastVtep)}}}}};
        return path;
    };
    agent(file(2, {1, 2, 3, 4}));
    test::Child log(consumer({"--plugin-dir", build + "/plugins", "--plugins", "event-log"}));
    for (int i = 0; i < 4; ++i) log.readUntil("\"add\"");
    usleep(300000);  // what the objects' tables have to say of the first mount
    daemon->kill(SIGKILL);
    daemon->wait();
    usleep(500000);
    std::vector<std::string> told;
    const auto hear = [&](const std::string& last) {
        for (Json line; told.empty() || told.back() != last;) {
            line = Json::parse(log.readUntil("\"op\""));
            told.push_back(line["op"].get<std::string>() + line["mac"].get<std::string>().substr(15));
        }
    };
    agent(file(2, {1, 2, 3, 5}));
    hear("add05");
    usleep(1500000);  // the hold time ends as well
    agent(file(2, {1, 2, 3}), {"--cold"});
    hear("remove05");
    agent(file(7, {1, 2, 3}), {"--cold"});
    hear("update02");
    EXPECT_EQ(told, (std::vector<std::string>{"remove04", "add05", "remove05", "update01", "update02"}));
    log.kill(SIGTERM);
    EXPECT_EQ(log.wait(), 0);
    EXPECT_EQ(log.rest().find("\"op\""), std::string::npos) << log.rest();
}

TEST_F(ConsumerTest, KernelFdbProgramsSweepsMendsAndLeavesOthersAlone) {
    const test::NetNs ns("kfdb");
    if (!ns.exists()) GTEST_SKIP() << "network namespaces are not allowed here";
    agent(recorded);
    // VLAN-aware where this kernel can be.
    const bool isVlanAware = ns.run("ip link add br0 type bridge vlan_filtering 1");
    ASSERT_TRUE(isVlanAware || ns.run("ip link add br0 type bridge"));
    const std::string vlan = isVlanAware ? "vlan 10 " : "";
    ASSERT_TRUE(ns.run("ip link add p1 type veth peer name p1x"));
    ASSERT_TRUE(ns.run("ip link set p1 master br0 up"));
    ASSERT_TRUE(ns.run("bridge fdb add 46:c4:f7:00:4d:14 dev p1 " + vlan + "master static"));
    const auto has = [&](const std::string& mac, const std::string& rest) {
        return ns.run("bridge fdb show dev vx100 | grep '^" + mac + " " + rest + "'");
    };
    const auto eventually = [](auto&& condition) {
        for (int i = 0; i < 200 && !condition(); ++i) usleep(50000);
        return condition();
    };
    const auto words = ns.inside(
        consumer({"--plugin-dir", build + "/plugins", "--plugins", "kernel-fdb", "--set", "L2RIB_KERNEL_FDB=vx100=10",
                  "--set", "L2RIB_KERNEL_FDB_OWN_VTEP=10.0.0.1", "--set", "L2RIB_KERNEL_FDB_INTERVAL=0.2"}));
    std::optional<test::Child> programmer(std::in_place, words);
    programmer->readUntil("ready");

    // The device comes later than the plug-in.
    usleep(300000);
    ASSERT_TRUE(ns.run("ip link add vx100 type vxlan id 100 local 10.0.0.4 dstport 4789 nolearning"));
    ASSERT_TRUE(ns.run("bridge fdb add 02:aa:aa:aa:aa:01 dev vx100 dst 10.9.9.9 self static"));
    ASSERT_TRUE(ns.run("ip link set vx100 master br0 up"));
    ASSERT_TRUE(!isVlanAware || ns.run("bridge vlan add dev vx100 vid 10"));
    // A VTEP, a port of the table's own switch, one that is behind this very switch, and someone else's entries.
    EXPECT_TRUE(eventually([&] { return has("02:00:00:00:01:01", "dst 10.0.0.2 self extern_learn"); }));
    EXPECT_TRUE(has("02:00:00:00:01:01", vlan + "extern_learn master br0"));
    EXPECT_TRUE(eventually([&] { return has("5e:55:04:3b:d3:af", "dst 10.0.0.1 self extern_learn"); }));
    EXPECT_FALSE(has("02:00:00:00:01:03", ""));
    EXPECT_TRUE(has("02:aa:aa:aa:aa:01", "dst 10.9.9.9 self static"));
    EXPECT_FALSE(has("02:aa:aa:aa:aa:01", "dst 10.0.0.1"));
    EXPECT_FALSE(has("46:c4:f7:00:4d:14", ""));
    EXPECT_TRUE(ns.run("bridge fdb show dev p1 | grep '^46:c4:f7:00:4d:14 " + vlan + "master br0 static'"));

    // Drift of either half is mended.
    ASSERT_TRUE(ns.run("bridge fdb del 02:00:00:00:01:01 dev vx100 self"));
    EXPECT_TRUE(eventually([&] { return has("02:00:00:00:01:01", "dst 10.0.0.2 self extern_learn"); }));
    ASSERT_TRUE(ns.run("bridge fdb del 02:00:00:00:01:01 dev vx100 " + vlan + "master"));
    EXPECT_TRUE(eventually([&] { return has("02:00:00:00:01:01", vlan + "extern_learn master"); }));

    // What went while it was dead is swept when it comes back; what someone else made stays.
    programmer->kill(SIGKILL);
    programmer->wait();
    std::ofstream(scratch.path() + "/one.json")
        << R"([{"mac":"02:00:00:00:02:01","ifname":"vxp","dst":"2001:db8::1","flags":["self","extern_learn"],"state":""},)"
           R"({"mac":"02:00:00:00:01:01","ifname":"vxp","dst":"10.0.0.7","flags":["self","extern_learn"],"state":""},)"
           R"({"mac":"02:00:00:00:01:01","ifname":"vxp","flags":["extern_learn"],"master":"br0","state":""}])";
    agent(scratch.path() + "/one.json");
    programmer.emplace(words);
    EXPECT_TRUE(eventually([&] { return has("02:00:00:00:01:01", "dst 10.0.0.7 self extern_learn"); }));
    EXPECT_TRUE(eventually([&] { return !has("5e:55:04:3b:d3:af", ""); }));
    EXPECT_FALSE(has("02:00:00:00:02:01", ""));  // refused by the kernel: no half of it is left
    EXPECT_TRUE(has("02:aa:aa:aa:aa:01", "dst 10.9.9.9 self static"));
    programmer->kill(SIGTERM);
    EXPECT_EQ(programmer->wait(), 0) << programmer->rest();
}

// Two hosts behind one group: the kernel has it once, under one name, whatever becomes of it; and what is written of
// the hosts is what the group leads to.
TEST_F(ConsumerTest, AGroupIsOneGroupOfNextHops) {
    const test::NetNs ns("knh");
    if (!ns.exists() || !ns.run("ip nexthop add id 7 via 10.9.9.9 fdb")) GTEST_SKIP() << "no next hops here";
    ASSERT_TRUE(ns.run("ip link add br0 type bridge"));
    ASSERT_TRUE(ns.run("ip link add vx100 type vxlan id 100 local 10.0.0.1 dstport 4789 nolearning"));
    ASSERT_TRUE(ns.run("ip link set vx100 master br0 up"));
    const auto eventually = [](auto&& condition) {
        for (int i = 0; i < 200 && !condition(); ++i) usleep(50000);
        return condition();
    };
    const auto out = [&](const std::string& command) {
        const std::string path = scratch.path() + "/out";
        ns.run(command + " | tee " + path);
        std::ifstream file(path);
        return std::string{std::istreambuf_iterator<char>(file), {}};
    };
    const auto entry = [&](int host) {
        return out("bridge fdb show dev vx100 | grep '^02:aa:aa:aa:aa:0" + std::to_string(host) + ".* self'");
    };
    const auto nextHops = [&] { return out("ip nexthop show | grep -v 10.9.9.9 | sort"); };
    const auto vteps = [&](std::vector<int> last, std::vector<int> hosts = {1, 2}) {
        Json group = Json::array(), dests = Json::array(), rows = Json::array();
        for (const int n : last) {
            group.push_back({{"table", "dest"}, {"id", n}});
            dests.push_back({{"id", n}, {"type", "vtep"}, {"address", "10.0.0." + std::to_string(n)}});
        }
        for (const int n : hosts) {
            rows.push_back({{"vlan", 10},
                            {"mac", "02:aa:aa:aa:aa:0" + std::to_string(n)},
                            {"next", {{"table", "load-balance"}, {"id", 1}}}});
        }
        const std::string path = scratch.path() + "/groups.json";
        std::ofstream(path + ".new") << Json{
            {"source", "bgp"},
            {"hosts", rows},
            {"loadBalances", {{{"id", 1}, {"next", group}}}},
            {"dests", dests}}.dump();
        std::filesystem::rename(path + ".new", path);
        return path;
    };
    agent(vteps({2, 3}));
    test::Child log(consumer({"--plugin-dir", build + "/plugins", "--plugins", "event-log"}));
    EXPECT_EQ(Json::parse(log.readUntil("aa:02"))["via"]["members"].size(), 2u);
    const auto words = ns.inside(consumer({"--plugin-dir", build + "/plugins", "--plugins", "kernel-fdb", "--set",
                                           "L2RIB_KERNEL_FDB=vx100=10", "--set", "L2RIB_KERNEL_FDB_INTERVAL=0.2"}));
    std::optional<test::Child> programmer(std::in_place, words);
    EXPECT_TRUE(eventually([&] { return !entry(1).empty() && !entry(2).empty(); }));
    const std::string first = entry(1);
    EXPECT_NE(first.find(" nhid "), std::string::npos) << first;
    EXPECT_EQ(first.substr(17), entry(2).substr(17));
    const auto has = [&](const std::string& text) { return nextHops().find(text) != std::string::npos; };
    EXPECT_TRUE(has("via 10.0.0.2") && has("via 10.0.0.3") && has(" group "));

    vteps({2, 4, 5});
    EXPECT_TRUE(eventually([&] { return has("via 10.0.0.5") && !has("via 10.0.0.3"); })) << nextHops();
    EXPECT_EQ(entry(1), first);
    EXPECT_EQ(Json::parse(log.readUntil("\"update\""))["via"]["members"][2]["dest"]["address"], "10.0.0.5");
    // Killed, and the group goes on; changed meanwhile, and it is mended.
    programmer->kill(SIGKILL);
    programmer->wait();
    ASSERT_TRUE(ns.run("bridge fdb del 02:aa:aa:aa:aa:02 dev vx100 self"));
    programmer.emplace(words);
    EXPECT_TRUE(eventually([&] { return !entry(2).empty(); }));
    EXPECT_EQ(entry(2).substr(17), first.substr(17));
    // A VTEP in place of the group, and the group again; at last nothing is left but what is someone else's.
    vteps({6});
    EXPECT_TRUE(eventually([&] { return entry(1).find("dst 10.0.0.6 self extern_learn") != std::string::npos; }));
    EXPECT_TRUE(eventually([&] { return nextHops().empty(); })) << nextHops();
    vteps({6, 7});
    EXPECT_TRUE(eventually([&] { return entry(2).find(" nhid ") != std::string::npos; })) << entry(2);
    vteps({6, 7}, {});
    EXPECT_TRUE(eventually([&] { return entry(1).empty() && entry(2).empty() && nextHops().empty(); })) << nextHops();
    EXPECT_FALSE(out("ip nexthop show id 7").empty());
    programmer->kill(SIGTERM);
    EXPECT_EQ(programmer->wait(), 0) << programmer->rest();
}

}  // namespace
