// Producers, agent and monitor as processes of their own: what they publish, who takes over, and that every one of them
// may be killed at any time.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <numeric>

#include "support/Support.h"

namespace {

using Json = nlohmann::json;

class ProducersTest : public testing::Test {
 protected:
    // Written beside and moved into place, so that no reader meets half a file.
    std::string write(const std::string& name, const std::string& text) {
        const std::string path = files.path() + "/" + name;
        std::ofstream(path + ".new") << text;
        std::filesystem::rename(path + ".new", path);
        return path;
    }
    // A source with one host for each VLAN that is named, at this preference, behind this VTEP.
    static std::string sourceOf(const std::string& source, std::vector<int> vlans, int preference,
                                const std::string& vtep = "10.0.0.2") {
        Json hosts = Json::array();
        for (const int vlan : vlans) {
            hosts.push_back({{"vlan", vlan},
                             {"mac", "02:aa:aa:aa:aa:01"},
                             {"preference", preference},
                             {"ciDest", {{"type", "vtep"}, {"address", vtep}}}});
        }
        return Json{{"source", source}, {"hosts", hosts}}.dump();
    }
    std::unique_ptr<test::Child> start(std::vector<std::string> words, const std::string& until) {
        words.insert(words.begin() + 1, {"--root", scratch.path()});
        auto child = std::make_unique<test::Child>(words);
        child->readUntil(until);
        return child;
    }
    std::unique_ptr<test::Child> agent() { return start({"l2ribd", "--fdb", "none", "--hold", "1"}, "ready, "); }
    std::unique_ptr<test::Child> producer(const std::string& path) {
        return start({"l2rib-source", "file", path}, "ready");
    }
    std::unique_ptr<test::Child> monitor() { return start({"l2rib", "host", "monitor", "--current"}, "sync-done"); }
    std::pair<int, std::string> tool(std::vector<std::string> words) {
        words.insert(words.begin(), {"l2rib", "--root", scratch.path()});
        return test::run(words);
    }
    Json json(std::vector<std::string> words) {
        words.insert(words.begin(), "-j");
        return Json::parse(tool(words).second);
    }
    // "10 bgp 10.0.0.2, ..." of the output.
    std::string hosts() {
        std::string text;
        const auto [status, out] = tool({"-j", "host", "show"});
        if (status == 2) return out;
        const Json all = Json::parse(out);
        for (const auto& row : all["rows"]) {
            text += Quil::cat(text.empty() ? "" : ", ", row["vlan"].get<int>(), " ", row["source"].get<std::string>(),
                              " ", row["via"].value("address", ""));
        }
        return text;
    }
    testing::AssertionResult becomes(const std::string& expected) {
        std::string now;
        for (int i = 0; i < 100; ++i) {
            if ((now = hosts()) == expected) return testing::AssertionSuccess();
            usleep(50000);
        }
        return testing::AssertionFailure() << now;
    }

    test::ScratchDir scratch, files;
};

TEST_F(ProducersTest, WhenOneSourceWithdrawsTheOtherTakesOverInOneUpdate) {
    auto daemon = agent();
    auto bgp = producer(write("bgp.json", sourceOf("bgp", {10, 20}, 0)));
    ASSERT_TRUE(becomes("10 bgp 10.0.0.2, 20 bgp 10.0.0.2"));
    auto mlag = producer(write("mlag.json", sourceOf("mlag", {10}, 150, "10.0.0.3")));
    ASSERT_TRUE(becomes("10 mlag 10.0.0.3, 20 bgp 10.0.0.2"));
    auto watching = monitor();
    mlag->kill(SIGTERM);
    EXPECT_EQ(mlag->wait(), 0) << mlag->rest();
    EXPECT_NE(watching->readLine().find("update 10 02:aa:aa:aa:aa:01 bgp vtep 10.0.0.2"), std::string::npos);
    // A change of the file is one change for each row that differs; what is malformed changes nothing.
    write("bgp.json", R"({"source":"bgp","hosts":[{"vlan":10}]})");
    EXPECT_EQ(bgp->readLine().substr(0, 14), "l2rib-source: ");
    write("bgp.json", sourceOf("bgp", {10, 30}, 0));
    // The two rows are the agent's in the order of their keys, and the monitor may look between them.
    const std::string one = watching->readLine(), other = watching->readLine();
    const bool isAddedFirst = one.find("add 30") != std::string::npos;
    EXPECT_NE((isAddedFirst ? one : other).find("add 30"), std::string::npos) << one << other;
    EXPECT_NE((isAddedFirst ? other : one).find("delete 20"), std::string::npos) << one << other;
    ASSERT_TRUE(becomes("10 bgp 10.0.0.2, 30 bgp 10.0.0.2"));
    watching->kill(SIGINT);
    watching->wait();
    EXPECT_EQ(watching->rest(), "");
}

// The kernel's producer and a file's, each in a process of its own, say the same host.
TEST_F(ProducersTest, TheKernelAndAFileAnnounceTheSameHost) {
    const test::NetNs ns("prod");
    if (!ns.exists()) GTEST_SKIP() << "network namespaces are not allowed here";
    for (const char* command :
         {"ip link add br0 type bridge", "ip link add vx100 type vxlan id 100 local 10.0.0.1 dstport 4789 nolearning",
          "ip link set vx100 master br0 up",
          "bridge fdb add 02:aa:aa:aa:aa:01 dev vx100 dst 10.0.0.2 self master extern_learn",
          "bridge fdb append 00:00:00:00:00:00 dev vx100 dst 10.0.0.2",
          "bridge fdb append 00:00:00:00:00:00 dev vx100 dst 10.0.0.3"}) {
        ASSERT_TRUE(ns.run(command)) << command;
    }
    auto daemon = agent();
    const std::vector<std::string> words{"l2rib-source", "--root", scratch.path(), "--vlan", "br0=10", "kernel"};
    auto kernel = std::make_unique<test::Child>(ns.inside(words));
    kernel->readUntil("ready");
    const auto winner = [&] {
        const auto rows = json({"host", "show", "vlan", "10", "mac", "02:aa:aa:aa:aa:01"})["rows"];
        return rows.empty() ? std::string() : rows[0]["source"].get<std::string>();
    };
    const auto wonBy = [&](const std::string& source) {
        for (int i = 0; i < 100 && winner() != source; ++i) usleep(50000);
        return winner() == source;
    };
    ASSERT_TRUE(wonBy("bgp"));
    EXPECT_NE(tool({"flood", "show"}).second.find("  10  00:00:00:00:00:00  all   vtep 10.0.0.2, vtep 10.0.0.3\n"),
              std::string::npos);
    ASSERT_TRUE(ns.run("bridge fdb del 00:00:00:00:00:00 dev vx100 dst 10.0.0.3"));
    auto mlag = producer(write("mlag.json", sourceOf("mlag", {10}, 150, "10.0.0.3")));
    ASSERT_TRUE(wonBy("mlag"));
    EXPECT_NE(tool({"flood", "show"}).second.find("  10  00:00:00:00:00:00  all   vtep 10.0.0.2\n"), std::string::npos);
    auto watching = start({"l2rib", "host", "monitor", "--current", "mac", "02:aa:aa:aa:aa:01"}, "sync-done");
    // A kernel producer that is killed and comes back changes nothing.
    kernel->kill(SIGKILL);
    kernel->wait();
    kernel = std::make_unique<test::Child>(ns.inside(words));
    kernel->readUntil("ready");
    mlag->kill(SIGTERM);
    EXPECT_NE(watching->readLine().find("update 10 02:aa:aa:aa:aa:01 bgp vtep 10.0.0.2"), std::string::npos);
    ASSERT_TRUE(ns.run("bridge fdb del 02:aa:aa:aa:aa:01 dev vx100 dst 10.0.0.2 self"));
    EXPECT_NE(watching->readLine().find("delete 10 02:aa:aa:aa:aa:01"), std::string::npos);
    kernel->kill(SIGTERM);
    EXPECT_EQ(kernel->wait(), 0) << kernel->rest();
}

TEST_F(ProducersTest, EveryProcessMayBeKilledInEveryOrder) {
    enum Victim { theProducer, theAgent, theMonitor };
    int round = 0;
    const std::string path = write("bgp.json", sourceOf("bgp", {1}, 0));
    std::unique_ptr<test::Child> children[] = {producer(path), agent(), monitor()};
    std::vector<Victim> order{theProducer, theAgent, theMonitor};
    do {
        for (const Victim victim : order) {
            children[victim]->kill(SIGKILL);
            children[victim]->wait();
        }
        // The last one killed comes back first.
        write("bgp.json", sourceOf("bgp", {1, 100 + round}, 0));
        for (auto victim = order.rbegin(); victim != order.rend(); ++victim) {
            children[*victim] = *victim == theProducer ? producer(path) : *victim == theAgent ? agent() : monitor();
        }
        EXPECT_TRUE(becomes(Quil::cat("1 bgp 10.0.0.2, ", 100 + round, " bgp 10.0.0.2"))) << "round " << round;
        write("bgp.json", sourceOf("bgp", {1, 200 + round}, 0));
        children[theMonitor]->readUntil(Quil::cat("add ", 200 + round, " "));
        EXPECT_TRUE(becomes(Quil::cat("1 bgp 10.0.0.2, ", 200 + round, " bgp 10.0.0.2"))) << "round " << round;
        EXPECT_EQ(tool({"table", "check"}).first, 0);
        ++round;
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST_F(ProducersTest, AnAgentThatWaitsForASourceCanBeEnded) {
    auto bgp = producer(write("bgp.json", sourceOf("bgp", {10}, 0)));
    bgp->kill(SIGSTOP);
    test::Child daemon({"l2ribd", "--root", scratch.path(), "--fdb", "none"});
    usleep(300000);
    daemon.kill(SIGTERM);
    EXPECT_EQ(daemon.wait(), 0) << daemon.rest();
    EXPECT_EQ(daemon.rest(), "l2ribd: ends before it was ready\n");
}

TEST_F(ProducersTest, ThePolicyIsReadAgainAsAWhole) {
    const std::string rules =
        write("rules.json", R"({"preferences":{"mlag":101},"ownVtep":"10.0.0.1","multihomed":["po1"]})");
    auto daemon = start({"l2ribd", "--fdb", "none", "--policy", rules}, "ready, ");
    auto bgp = producer(write("bgp.json", sourceOf("bgp", {10}, 0)));
    auto mlag = producer(write("mlag.json", sourceOf("mlag", {10}, 0, "10.0.0.3")));
    ASSERT_TRUE(becomes("10 mlag 10.0.0.3"));
    const std::pair<std::string, std::string> bad[] = {
        {"{", "is not JSON from byte 2 on"},
        {R"({"preferences":{"bgp":0}})", "preferences.bgp: is not a number from 1 to 4294967295"},
        {R"({"preferences":{"nobody":1}})", "preferences.nobody: no source of this name"},
        {R"({"preferences":{"bgp":500},"ownVtep":"here"})", "ownVtep: 'here' is not an IP address"},
        {R"({"quotas":{"bgp":0}})", "quotas.bgp: is not a number from 1 to 4294967295"},
        {R"({"duplicates":{"moves":1}})", "duplicates.moves: is not a number from 2 to 1000"},
        {R"({"duplicates":{"action":"stop"}})", "duplicates.action: is neither warn nor freeze"},
        {R"({"duplicates":{"recovery":30}})", "duplicates.recovery: is for freeze only"},
        {R"({"duplicates":{"action":"freeze","recovery":29}})", "duplicates.recovery: is not a number from 30 to 3600"},
        {R"({"own":1})", "own: is not known here"}};
    for (const auto& [text, what] : bad) {
        write("rules.json", text);
        daemon->kill(SIGHUP);
        EXPECT_EQ(daemon->readUntil("policy"), "l2ribd: the policy stays as it was: " + rules + ": " + what);
    }
    EXPECT_TRUE(becomes("10 mlag 10.0.0.3"));
    write("rules.json", R"({"preferences":{"bgp":102}})");
    daemon->kill(SIGHUP);
    EXPECT_TRUE(becomes("10 bgp 10.0.0.2"));
}

TEST_F(ProducersTest, ARestartOfTheAgentShowsOnlyWhatDiffers) {
    std::vector<int> vlans(4000);
    std::iota(vlans.begin(), vlans.end(), 1);
    const std::string path = write("bgp.json", sourceOf("bgp", vlans, 0));
    auto bgp = producer(path);
    auto daemon = agent();
    auto watching = monitor();
    for (int i = 0; i < 3; ++i) {
        daemon->kill(SIGKILL);
        daemon->wait();
        daemon = agent();
        write("bgp.json", sourceOf("bgp", vlans, 0, "10.0.0." + std::to_string(10 + i)));
        EXPECT_NE(watching->readLine().find("update"), std::string::npos);
        for (std::size_t n = 1; n < vlans.size(); ++n) {
            ASSERT_NE(watching->readLine().find(" (was bgp vtep 10.0.0."), std::string::npos);
        }
    }
}

TEST_F(ProducersTest, TheHostsOfADeadProducerStandForTheHoldTime) {
    auto daemon = agent();
    auto bgp = producer(write("bgp.json", sourceOf("bgp", {10}, 0)));
    ASSERT_TRUE(becomes("10 bgp 10.0.0.2"));
    bgp->kill(SIGKILL);
    bgp->wait();
    daemon->readUntil("source bgp-bgp is away; its hosts stand for 1 s");
    EXPECT_EQ(hosts(), "10 bgp 10.0.0.2");
    daemon->readUntil("source bgp-bgp has not come back");
    EXPECT_TRUE(becomes(""));
    EXPECT_EQ(tool({"source", "show"}).first, 1);
}

TEST_F(ProducersTest, TheSwitchIsKeptOverARestart) {
    auto daemon = agent();
    const std::string path = write("bgp.json", sourceOf("bgp", {10}, 0));
    auto bgp = producer(path);
    ASSERT_TRUE(becomes("10 bgp 10.0.0.2"));
    EXPECT_EQ(tool({"config", "set", "agent-enabled", "off"}), std::pair(0, std::string()));
    EXPECT_EQ(json({"status", "show"})["agentEnabled"], false);
    write("bgp.json", sourceOf("bgp", {20}, 0));
    daemon->kill(SIGKILL);
    daemon->wait();
    daemon = agent();
    usleep(300000);
    EXPECT_EQ(hosts(), "10 bgp 10.0.0.2");
    EXPECT_EQ(json({"status", "show"})["agentEnabled"], false);
    EXPECT_EQ(tool({"config", "set", "agent-enabled", "on"}).first, 0);
    EXPECT_TRUE(becomes("20 bgp 10.0.0.2"));
    EXPECT_EQ(tool({"config", "set", "agent-enabled", "maybe"}),
              std::pair(2, std::string("l2rib: config set: agent-enabled on|off is what can be set\n")));
    daemon->kill(SIGTERM);
    EXPECT_EQ(daemon->wait(), 0);
    EXPECT_EQ(tool({"status", "show"}),
              std::pair(2, "l2rib: status show: no agent answers under " + scratch.path() + "\n"));
}

const char* const everything = R"({"schema":1,"sources":[
{"name":"evpn",
 "source":"bgp-evpn-mpls",
 "hosts":[
  {"vlan":10,"mac":"02:aa:aa:aa:aa:01","seqNo":5,"preference":7,"entryType":"remote","lastMoveTime":12.5,"next":{"table":"load-balance","id":7}},
  {"vlan":10,"mac":"02:aa:aa:aa:aa:02","seqNo":0,"preference":0,"entryType":"dynamic","lastMoveTime":0.0,"ciDest":{"type":"interface","name":"port-x1"}},
  {"vlan":20,"mac":"02:aa:aa:aa:aa:02","seqNo":1,"preference":0,"entryType":"router","lastMoveTime":0.0,"ciDest":{"type":"cpu"}},
  {"vlan":30,"mac":"02:aa:aa:aa:aa:02","seqNo":0,"preference":0,"entryType":"remote-static","lastMoveTime":0.0,"ciDest":{"type":"vtep","addresses":["10.0.0.2","2001:db8::1"]}}],
 "loadBalances":[
  {"id":7,"next":[{"table":"label","id":1},null,{"table":"dest","id":2}]}],
 "labels":[
  {"id":1,"label":100,"next":{"table":"dest","id":1}}],
 "dests":[
  {"id":1,"type":"mpls","name":"port-x1","label":16},
  {"id":2,"type":"vtep","address":"10.0.0.3"},
  {"id":3,"type":"interface","intf":"Vxlan7"},
  {"id":4,"type":"tunnel","intf":"DynamicTunnel5"},
  {"id":5,"type":"cpu"}],
 "floodSets":[
  {"vlan":10,"mac":"00:00:00:00:00:00","type":"any","dests":[{"type":"vtep","address":"10.0.0.3"}]}]},
{"name":"peer",
 "source":"mlag",
 "floodSets":[
  {"vlan":10,"mac":"00:00:00:00:00:00","type":"all","dests":[{"type":"vtep","address":"10.0.0.2"},{"type":"vtep","address":"10.0.0.3"}]}]}
]}
)";

TEST_F(ProducersTest, WhatAFileSaysIsShownAndDumpedAsItStands) {
    auto daemon = agent();
    auto lab = producer(write("lab.json", everything));
    daemon->readUntil("source peer is merged");
    EXPECT_EQ(tool({"table", "dump"}), std::pair(0, std::string(everything)));
    const Json sources = json({"source", "show"});
    EXPECT_EQ(sources["total"], 2);
    EXPECT_EQ(sources["rows"][0].dump(),
              R"({"destTable":{"length":1024,"path":"l2rib/input/evpn/dest/dest"},"floodVlans":[10],)"
              R"("hostTable":{"length":16384,"path":"l2rib/input/evpn/host/host"},"hostsOverQuota":0,)"
              R"("hostsWaiting":0,"initialized":true,)"
              R"("labelTable":{"length":1024,"path":"l2rib/input/evpn/label/label"},)"
              R"("loadBalanceTable":{"length":1024,"path":"l2rib/input/evpn/lb/lb"},)"
              R"("multiTable":true,"name":"evpn","objectsRefused":0,"source":"bgp-evpn-mpls"})");
    EXPECT_EQ(tool({"flood", "show", "vlan", "10"}),
              std::pair(0, std::string("VLAN  MAC                Type  Destinations\n"
                                       "  10  00:00:00:00:00:00  all   vtep 10.0.0.2, vtep 10.0.0.3\n"
                                       "Total 1 flood set, of mlag,bgp-evpn-mpls (mask 160)\n")));
    EXPECT_EQ(json({"flood", "show"})["rows"][0]["dests"].size(), 2u);
    EXPECT_EQ(tool({"flood", "show", "vlan", "11"}).first, 1);
    EXPECT_EQ(
        tool({"host", "show", "vlan", "10", "mac", "02:aa:aa:aa:aa:02"}).second.find("port-x1") != std::string::npos,
        true);
    // The output, by winners, is again what a producer reads.
    const auto output = tool({"table", "dump", "l2rib/output"});
    EXPECT_EQ(output.first, 0);
    lab->kill(SIGTERM);
    lab->wait();
    EXPECT_TRUE(becomes(""));
    auto again = producer(write("again.json", output.second));
    for (int i = 0; i < 100 && json({"host", "show"})["total"] != 4; ++i) usleep(50000);
    EXPECT_EQ(json({"host", "show"})["total"], 4);
}

TEST_F(ProducersTest, WhyAHostIsWhereItIs) {
    const auto bgpFile = [&](int seqNo) {
        return write("bgp.json", R"({"source":"bgp","hosts":[
            {"vlan":10,"mac":"02:aa:aa:aa:aa:01","seqNo":)" +
                                     std::to_string(seqNo) + R"(,"next":{"table":"load-balance","id":7}},
            {"vlan":10,"mac":"02:aa:aa:aa:aa:02","next":{"table":"label","id":1}},
            {"vlan":10,"mac":"02:aa:aa:aa:aa:03","next":{"table":"label","id":9}}],
            "loadBalances":[{"id":7,"next":[{"table":"label","id":1},null,{"table":"dest","id":2}]}],
            "labels":[{"id":1,"label":100,"next":{"table":"dest","id":2}},{"id":9,"label":7,"next":{"table":"label","id":9}}],
            "dests":[{"id":2,"type":"vtep","address":"10.0.0.3"}]})");
    };
    const auto portsFile = [&](int seqNo, const std::string& port) {
        return write("ports.json", R"({"source":"local-dynamic","hosts":[
            {"vlan":10,"mac":"02:aa:aa:aa:aa:01","seqNo":)" +
                                       std::to_string(seqNo) + R"(,"ciDest":{"type":"interface","name":")" + port +
                                       R"("}},
            {"vlan":10,"mac":"02:aa:aa:aa:aa:02","preference":50,"entryType":"static","ciDest":{"type":"cpu"}}]})");
    };
    const auto explained = [&](int host) {
        return tool({"host", "explain", "vlan", "10", "mac", "02:aa:aa:aa:aa:0" + std::to_string(host)});
    };
    auto daemon = start({"l2ribd", "--fdb", "none", "--policy",
                         write("rules.json", R"({"duplicates":{"moves":2,"action":"freeze"},"ownVtep":"10.0.0.9"})")},
                        "ready, ");
    auto bgp = producer(bgpFile(8)), ports = producer(portsFile(7, "p1"));
    ASSERT_TRUE(becomes("10 bgp , 10 bgp "));
    const std::string lb = "lb 1 {100 > 10.0.0.3, -, 10.0.0.3}";
    EXPECT_EQ(explained(1), std::pair(0,
                                      "10/02:aa:aa:aa:aa:01  winner bgp: higher sequence\n"
                                      "  1  bgp            pref 100  seq 8  " +
                                          lb +
                                          "  WINNER\n"
                                          "  2  local-dynamic  pref 100  seq 7  p1" +
                                          std::string(lb.size() - 2, ' ') + "  lost: sequence 7 < 8\n"));
    EXPECT_EQ(explained(2),
              std::pair(0, std::string("10/02:aa:aa:aa:aa:02  winner bgp: higher preference\n"
                                       "  1  bgp            pref 100  seq 0  label 1 {100 > 10.0.0.3}  WINNER\n"
                                       "  2  local-dynamic  pref  50  seq 0  cpu                       lost: "
                                       "preference 50 < 100\n"
                                       "  conflict: static and dynamic claims lead to different places\n")));
    EXPECT_EQ(explained(3),
              std::pair(0, std::string("10/02:aa:aa:aa:aa:03  no winner\n"
                                       "  1  bgp  pref 100  seq 0  its label 9  waits: its object leads nowhere\n")));
    EXPECT_EQ(explained(4), std::pair(1, std::string("10/02:aa:aa:aa:aa:04  no claim\n")));
    EXPECT_EQ(tool({"host", "explain", "vlan", "10"}),
              std::pair(2, std::string("l2rib: host explain: vlan and mac are both needed\n")));
    EXPECT_EQ(tool({"lb", "show", "-d"}).second,
              "Object                Leads to                       Hosts  Source\n"
              "lb 1                  {100 > 10.0.0.3, -, 10.0.0.3}      1  bgp, its lb 7\n"
              "  10/02:aa:aa:aa:aa:01\nTotal 1 group\n");
    EXPECT_EQ(json({"dest", "show"})["rows"][0]["hosts"], 2);
    const auto sources = json({"source", "show"})["rows"][0];
    EXPECT_EQ(sources["hostsWaiting"].dump() + sources["objectsRefused"].dump(), "11");

    portsFile(9, "p2");  // the second move comes with the next change
    ASSERT_TRUE(becomes("10 local-dynamic , 10 bgp "));
    bgpFile(12);
    ASSERT_TRUE(becomes("10 bgp , 10 bgp "));
    portsFile(20, "p3");
    for (int i = 0; i < 100 && explained(1).second.find("seq 20") == std::string::npos; ++i) usleep(50000);
    const std::string frozen = explained(1).second;
    EXPECT_NE(frozen.find("winner local-dynamic: higher sequence"), std::string::npos) << frozen;
    EXPECT_NE(frozen.find("duplicate, frozen: in the output it is " + lb + " (bgp)\n  moves 2: "), std::string::npos);
    EXPECT_NE(frozen.find(" lb 1 -> p2 (local-dynamic), "), std::string::npos) << frozen;
    EXPECT_EQ(json({"host", "show", "mac", "02:aa:aa:aa:aa:01"})["rows"][0]["flags"], "DF*");
    EXPECT_EQ(json({"status", "show"})["duplicates"], 1);
    for (const int status : {0, 1}) {
        EXPECT_EQ(tool({"host", "clear", "vlan", "10", "mac", "02:aa:aa:aa:aa:01"}).first, status);
    }
    EXPECT_TRUE(becomes("10 local-dynamic , 10 bgp "));
    daemon->kill(SIGSTOP);
    EXPECT_NE(tool({"host", "show"}).second.find("; no agent answers"), std::string::npos);
}

// The output's rows byte for byte, identifiers included, and the incarnation of their table.
TEST_F(ProducersTest, AnAgentGoesOnWithTheTablesOfTheOneBeforeUnlessItCannot) {
    const auto outputs = [&] { return tool({"table", "dump", "l2rib/output"}).second; };
    const auto incarnation = [&](const std::string& table = "output/lb/lb") {
        std::ifstream file(scratch.path() + "/l2rib/" + table + "/fenix", std::ios::binary);
        std::string bytes{std::istreambuf_iterator<char>(file), {}};
        return bytes.substr(8, 8);
    };
    const auto floods = [&] { return tool({"-j", "flood", "show"}).second; };
    auto lab = producer(write("lab.json", everything));
    Json forty = Json::parse(sourceOf("vxlan-static", {40}, 0));
    forty["floodSets"] = {{{"vlan", 40}, {"dests", {{{"type", "interface"}, {"name", "port-x1"}}}}}};
    auto vxlan = producer(write("vxlan.json", forty.dump()));
    auto daemon = agent();
    const std::string before = outputs(), first = incarnation(), flooded = floods();
    const std::string raised = incarnation("agent/raised/host");
    EXPECT_NE(before.find("\"vlan\":40"), std::string::npos);
    EXPECT_NE(flooded.find("\"vlan\":40"), std::string::npos);
    usleep(1500000);  // what the agent remembers is written by now
    daemon->kill(SIGKILL);
    daemon->wait();
    vxlan->kill(SIGTERM);
    vxlan->wait();
    daemon = start({"l2ribd", "--fdb", "none", "--hold", "2"}, "goes on with the output tables");
    daemon->readUntil("ready, 5 hosts");
    EXPECT_EQ(outputs(), before);
    EXPECT_EQ(incarnation(), first);
    EXPECT_EQ(floods(), flooded);
    daemon->readUntil("not back after a restart of the agent: vxlan-static");
    EXPECT_TRUE(becomes("10 bgp-evpn-mpls , 10 bgp-evpn-mpls , 20 bgp-evpn-mpls , 30 bgp-evpn-mpls 10.0.0.2"));
    const std::string without = outputs();
    for (int i = 0; i < 100 && tool({"flood", "show", "vlan", "40"}).first == 0; ++i) usleep(20000);
    const Json rest = Json::parse(floods());
    EXPECT_EQ(rest["total"], 1);

    // One table is damaged: it is made anew, and the others are right beside it.
    daemon->kill(SIGTERM);
    daemon->wait();
    std::ofstream(scratch.path() + "/l2rib/agent/flood-sets.json") << R"({"sources":4,"vlans":{"40":{"0":{}}}})";
    std::ofstream(scratch.path() + "/l2rib/output/lb/lb/slots") << "nonsense";
    daemon = start({"l2ribd", "--fdb", "none"}, "the table l2rib/output/lb/lb was damaged: it is made anew");
    daemon->readUntil("flood-sets.json: vlans.40.0: ");
    daemon->readUntil("ready, 4 hosts");
    EXPECT_EQ(Json::parse(floods()), rest);
    EXPECT_NE(incarnation(), first);
    EXPECT_EQ(incarnation("agent/raised/host"), raised);
    const Json healed = Json::parse(outputs())["sources"][0], was = Json::parse(without)["sources"][0];
    EXPECT_EQ(healed["dests"], was["dests"]);
    EXPECT_EQ(healed["hosts"][0]["next"]["id"], healed["loadBalances"][0]["id"]);
    EXPECT_GT(healed["loadBalances"][0]["id"], was["loadBalances"][0]["id"]);

    // What was known is lost, or is not wanted: all of it is new.
    for (const bool isLost : {true, false}) {
        const std::string last = incarnation();
        daemon->kill(SIGKILL);
        daemon->wait();
        if (isLost) std::ofstream(scratch.path() + "/l2rib/agent/state.json") << R"({"reserved":{"label":1}})";
        std::vector<std::string> words{"l2ribd", "--fdb", "none"};
        if (!isLost) words.push_back("--cold");
        daemon = start(words, isLost ? "state.json: reserved.loadBalance: is missing" : "ready");
        if (isLost) daemon->readUntil("is lost: they are made anew");
        if (isLost) daemon->readUntil("ready, 4 hosts");
        EXPECT_NE(incarnation(), last);
        EXPECT_EQ(Json::parse(outputs())["sources"][0]["loadBalances"][0]["id"], 1);
    }
}

TEST_F(ProducersTest, WhatIsWrongWithAFileIsOneLine) {
    const auto with = [](const std::string& rows) { return R"({"source":"mlag",)" + rows + "}"; };
    const auto host = [&](const std::string& keys) {
        return with(R"("hosts":[{"vlan":1,"mac":"02:aa:aa:aa:aa:01",)" + keys + "}]");
    };
    const std::pair<std::string, std::string> cases[] = {
        {"", "is not JSON from byte 1 on"},
        {"7", "is neither a JSON array of forwarding entries nor an object with sources"},
        {"{}", "source: is missing"},
        {R"({"source":"all"})", "source: no source of this name"},
        {R"({"source":"mlag","sorce":1})", "sorce: is not known here"},
        {R"({"schema":2,"source":"mlag"})", "schema: is not 1"},
        {R"({"name":"a/b","source":"mlag"})",
         "'a/b' is no name of 1 to 64 letters, digits and -_. that neither begins with a dot nor ends in .new"},
        {R"({"sources":[{"source":"mlag"},{"source":"mlag"}]})", "bad-mlag: is given twice"},
        {R"({"source":"mlag","x":1e999})", "is not JSON that can be held"},
        {R"({"source":"mlag","hosts":)" + std::string(100000, '['), "is nested deeper than 32 levels"},
        {with(R"("hosts":{})"), "hosts: is not an array"},
        {with(R"("hosts":[7])"), "hosts[0]: is not an object"},
        {with(R"("hosts":[],"hosts":[])"), "hosts: is given twice"},
        {with(R"("hosts":[{"vlan":4095}])"), "hosts[0].vlan: VlanId::value < 1 or > 4094 not allowed"},
        {with(R"("hosts":[{"vlan":1,"mac":"xx"}])"), "hosts[0].mac: 'xx' is not a MAC address (xx:xx:xx:xx:xx:xx)"},
        {host(R"("preference":4294967296)"), "hosts[0].preference: is not a number from 0 to 4294967295"},
        {host(R"("entryType":"odd")"), "hosts[0].entryType: 'odd' is none of Bridging::EntryType"},
        {host(R"("seqNo":0)"), "hosts[0]: needs either ciDest or next"},
        {host(R"("ciDest":{"type":"mpls"})"), "hosts[0].ciDest.type: is not interface, vtep or cpu"},
        {host(R"("ciDest":{"type":"vtep","addresses":["1.1.1.1","1.1.1.2","1.1.1.3"]})"),
         "hosts[0].ciDest.addresses[2]: CiVtepIndex::value < CiVtepIndex::min or > CiVtepIndex::max not allowed"},
        {host(R"("next":{"table":"dest","id":0})"), "hosts[0].next.id: is 0, which names no object"},
        {host(R"("next":{"table":"invalid","id":1})"), "hosts[0].next.table: is no table"},
        {with(R"("labels":[{"id":1,"label":8388609}])"),
         "labels[0].label: MplsLabel::value < MplsLabel::min or > MplsLabel::luWithdraw not allowed"},
        {with(R"("dests":[{"id":1,"type":"vtep","address":"2001:db8::1"}])"),
         "dests[0].address: is not an IPv4 address"},
        {with(R"("dests":[{"id":1,"type":"cpu"},{"id":1,"type":"cpu"}])"), "dests[1]: is given twice"},
        {with(R"("floodSets":[{"vlan":1},{"vlan":1,"type":"any"}])"), "floodSets[1]: is given twice"},
        {with(R"("floodSets":[{"vlan":1,"type":"invalid"}])"), "floodSets[0].type: is neither all nor any"}};
    const std::string path = files.path() + "/bad.json";
    for (const auto& [text, what] : cases) {
        write("bad.json", text);
        EXPECT_EQ(test::run({"l2rib-source", "--root", scratch.path(), "file", path}),
                  std::pair(2, "l2rib-source: " + path + ": " + what + "\n"));
    }
    std::filesystem::remove(path);
    EXPECT_EQ(test::run({"l2rib-source", "--root", scratch.path(), "file", path}),
              std::pair(2, "l2rib-source: " + path + ": cannot be read\n"));
    EXPECT_EQ(test::run({"l2rib-source", "--root", scratch.path()}).first, 2);
    EXPECT_EQ(tool({"table", "check"}), std::pair(2, "l2rib: table check: no tables under " + scratch.path() + "\n"));
}

}  // namespace
