// l2ribd: the agent. Runs the producer of the Linux forwarding tables, merges what its sources say and publishes the
// output host table under the root, until SIGTERM or SIGINT.
#include <fstream>
#include <iostream>
#include <sstream>

#include "Corestore/EntityManager.h"
#include "L2Rib/TableInfo.h"
#include "agent/PolicySm.h"
#include "common/EndSignals.h"
#include "common/Names.h"
#include "common/Program.h"
#include "fdb/FdbTables.h"
#include "fdb/JsonFdb.h"
#include "fdb/NetlinkFdb.h"

namespace {

struct Options {
    std::string root = "/dev/shm/l2rib";
    std::string fdb = "kernel";
    std::vector<std::string> vlans;       // "br0=10"
    std::vector<std::string> vxlans;      // device names
    std::vector<std::string> owns;        // MAC addresses
    std::vector<std::string> programmed;  // device names
};

Fdb::Settings settingsOf(const Options& options) {
    Fdb::Settings settings;
    for (const std::string& vlan : options.vlans) {
        const auto equals = vlan.find('=');
        if (equals == std::string::npos || equals == 0)
            throw Quil::RangeException("is not BRIDGE=VLAN", "--vlan " + vlan);
        Quil::atField(("--vlan " + vlan).c_str(), [&] {
            settings.vlanOfBridge[vlan.substr(0, equals)] = Bridging::VlanId(vlan.substr(equals + 1)).value();
        });
    }
    settings.programmedDevices.insert(options.programmed.begin(), options.programmed.end());
    for (const std::string& own : options.owns) {
        Quil::atField("--own", [&] { settings.ownAddresses.insert(Lanx::EthAddr(own)); });
    }
    return settings;
}

void say(const Quil::String& text) { std::cerr << "l2ribd: " << text << std::endl; }

class Agentd {
 public:
    explicit Agentd(const Options& options)
        : options_(options),
          em_(loop_, options.root, "l2ribd"),
          output_(L2Rib::hostOutputFactory("host")),
          policy_(output_),
          tables_([this](L2Rib::Source source, const auto& table) {
              if (merging_) policy_.sourceIs(source, table);
          }),
          model_(settingsOf(options), loop_.clock(), tables_) {}

    void run() {
        const Apps::EndSignals signals(loop_);
        startProducer();
        // The output is mounted when the inputs are whole, and filled before the loop turns: a consumer that follows it
        // over a restart of the agent is told of what differs, not of an empty table in between.
        em_.mount("l2rib/output", output_, L2Rib::TableInfo().hostOutputInfo(QuilMemtab::writer));
        merging_ = true;
        for (const auto& [source, table] : tables_.tables()) policy_.sourceIs(source, table);
        publishInterfaces();
        const auto hosts = output_->hosts();
        say(Quil::cat("ready, ", std::distance(hosts.begin(), hosts.end()), " hosts under ", options_.root));
        loop_.run();
        const Fdb::Statistics& s = model_.statistics();
        say(Quil::cat("ends; entries not published: ", s.floodEntries, " flood, ", s.nextHopGroupEntries,
                      " with a next-hop group, ", s.staleRemotes, " stale remotes; resynchronised ",
                      kernel_ ? kernel_->resyncs().value() : 0, " times"));
    }

 private:
    void startProducer() {
        if (options_.fdb == "kernel") {
            if (!options_.vxlans.empty()) throw Quil::RangeException("is for files only", "--vxlan");
            kernel_ = std::make_unique<Fdb::NetlinkFdb>(loop_, model_, [this] { publishInterfaces(); });
            return;
        }
        std::ifstream file(options_.fdb);
        std::ostringstream text;
        if (file) text << file.rdbuf();
        if (!file.is_open() || file.bad()) throw Quil::RangeException("cannot be read", "--fdb " + options_.fdb);
        const std::set<Quil::String> vxlans(options_.vxlans.begin(), options_.vxlans.end());
        Quil::atField(("--fdb " + options_.fdb).c_str(), [&] {
            Fdb::loadJson(text.str(), vxlans, model_, [&](const auto& what) { say(options_.fdb + ": " + what); });
        });
    }

    void publishInterfaces() {
        std::set<std::uint32_t> present;
        for (const auto& [index, link] : model_.links()) {
            interfaces_.nameIs(index, link.name);
            present.insert(index);
        }
        for (const std::uint32_t index : known_) {
            if (!present.contains(index)) interfaces_.nameIs(index, "");
        }
        known_ = std::move(present);
        interfaces_.writeTo(options_.root);
    }

    const Options options_;
    Quil::EventLoop loop_;
    Corestore::EntityManager em_;
    const Quil::Ptr<L2Rib::HostOutput> output_;
    Agent::PolicySm policy_;
    bool merging_ = false;  // sources found from now on are merged as they come
    Fdb::Tables tables_;
    Fdb::Model model_;
    Apps::InterfaceNames interfaces_;
    std::set<std::uint32_t> known_;  // interface indices in the names file
    std::unique_ptr<Fdb::NetlinkFdb> kernel_;
};

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app{"The agent of the layer-2 routing information base"};
    app.add_option("--root", options.root, "directory of the shared-memory tables")->capture_default_str();
    app.add_option("--fdb", options.fdb, "where hosts come from: kernel, or a file with the JSON of bridge -j fdb show")
        ->capture_default_str();
    app.add_option("--vlan", options.vlans, "BRIDGE=VLAN: the VLAN of entries that name none (default 1)");
    app.add_option("--vxlan", options.vxlans, "with a file: this device is VXLAN, whatever its rows say");
    app.add_option("--programmed", options.programmed,
                   "a VXLAN device whose external entries a consumer of this table makes: they are no source");
    app.add_option("--own", options.owns, "an address of this switch: its permanent entries are router MACs");
    return Apps::runProgram("l2ribd", app, argc, argv, [&] { Agentd(options).run(); });
}
