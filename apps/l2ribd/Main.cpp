// l2ribd: the agent. Finds the sources that announce themselves under the root, merges what they say, and publishes the
// four output tables, the merged flood sets and its own state, until SIGTERM or SIGINT. With --fdb it runs the producer
// of the Linux forwarding tables in its own process.
#include <csignal>
#include <iostream>

#include "Corestore/EntityManager.h"
#include "L2Rib/AgentStatus.h"
#include "Quil/AttrLogSource.h"
#include "Quil/Trace.h"
#include "SharedMem/FenixFile.h"
#include "agent/Places.h"
#include "agent/SourceFinder.h"
#include "agent/SourceMounts.h"
#include "common/Program.h"
#include "common/Signals.h"
#include "l2ribd/Answers.h"
#include "l2ribd/ConfigFile.h"
#include "l2ribd/Outputs.h"
#include "l2ribd/PolicyFile.h"
#include "producer/Producer.h"

namespace {

constexpr Quil::Seconds startPatience = 10;  // for sources that are there but have not said all yet

struct Options {
    std::string root = "/dev/shm/l2rib";
    std::string fdb = "kernel";
    double hold = 30;
    bool cold = false;
    std::string policy;  // file; empty: the defaults
    Producer::Options producer;
};

void say(const Quil::String& text) { std::cerr << "l2ribd: " << text << std::endl; }

class Agentd : L2Rib::Config::NotifieeConst {
 public:
    explicit Agentd(const Options& options) : options_(options), readers_(loop_, options.root, "l2ribd") {
        if (!(options.hold >= 0)) throw Quil::RangeException("is not a time in seconds", "--hold");
        config_->agentEnabledIs(file_.readEnabled());
        policy_.enabledIs(false);  // until the output is mounted
        floods_.enabledIs(false);
        notifierIs(config_);
        if (!options.policy.empty()) policy_.policyIs(readPolicy(options.policy, options.root));
    }

    void run() {
        const Apps::EndSignals signals(loop_);
        const Apps::Signals reload(loop_, {SIGHUP}, [this] { reloadPolicy(); });
        Apps::alwaysSaid({"Quil::AttrLog", "Fdb", "Mobility"}, say);
        // Before anything is announced that an agent at work would merge.
        if (SharedMem::FenixFile::writerLives(
                Mem::pathUnder(options_.root, Quil::cat(Agent::Places::output, "/host/host")))) {
            throw Quil::SystemException("another agent is at work under " + options_.root);
        }
        const auto producer = startProducer();
        waitForSources();
        if (loop_.isStopped()) {
            if (producer) producer->withdraw();
            return say("ends before it was ready");
        }
        // Once more: the producers have said by now how they call their interfaces.
        if (!options_.policy.empty()) policy_.policyIs(readPolicy(options_.policy, options_.root));
        mountOutput();
        const Shown shown(*this);
        const auto hosts = outputs_.hosts()->hosts();
        say(Quil::cat("ready, ", std::distance(hosts.begin(), hosts.end()), " hosts under ", options_.root,
                      config_->agentEnabled() ? "" : "; the agent is disabled"));
        loop_.run();
        outputs_.flush();
        if (!producer) return say("ends");
        producer->withdraw();
        say(Quil::cat("ends; entries not published: ", producer->summary()));
    }

 private:
    // What other processes see of the agent beside the output tables. Not before that is mounted: only one agent can.
    struct Shown {
        Quil::AttrLogSource sources, floodSets, status, config;
        Apps::AnswerSocket questions;
        explicit Shown(Agentd& a)
            : sources(a.loop_, a.directory_, Agent::Places::sources, a.sources_),
              floodSets(a.loop_, a.directory_, Agent::Places::floodSets, a.floodSets_),
              status(a.loop_, a.directory_, Agent::Places::status, a.status_),
              config(a.loop_, a.directory_, Agent::Places::config, a.config_, Quil::AttrLogSource::writable),
              questions(a.loop_, a.directory_, Agent::Places::questions, Answers(a.policy_)) {}
    };

    std::unique_ptr<Producer::Producer> startProducer() {
        if (options_.fdb == "none") return nullptr;
        if (options_.fdb == "kernel") return Producer::kernelProducer(inputs_, options_.producer);
        return Producer::fileProducer(inputs_, options_.producer, options_.fdb, say);
    }

    void waitForSources() {
        const Quil::Seconds end = loop_.clock()->now() + startPatience;
        do {
            loop_.runOnce(0.01);
        } while (!finder_.isSettled() && !loop_.isStopped() && loop_.clock()->now() < end);
    }

    // When the inputs are whole, and filled before the loop turns: a consumer that follows the output over a restart of
    // the agent is told of what differs, not of an empty table in between.
    void mountOutput() {
        const auto start = options_.cold ? Outputs::Start::cold : Outputs::Start::warm;
        outputs_.mount(start, config_->agentEnabled(), policy_, floods_, options_.hold);
        apply();
        policy_.settle();
        floods_.settle();
    }

    // As a whole, or not at all.
    void reloadPolicy() {
        if (options_.policy.empty()) return;
        try {
            policy_.policyIs(readPolicy(options_.policy, options_.root));
            say("the policy is read again");
        } catch (const Quil::Exception& error) {
            say(Quil::cat("the policy stays as it was: ", error.what()));
        }
    }

    void apply() {
        policy_.enabledIs(config_->agentEnabled());
        floods_.enabledIs(config_->agentEnabled());
    }
    void onAgentEnabled() override {
        try {
            file_.writeEnabled(config_->agentEnabled());
        } catch (const Quil::Exception& error) {
            say(Quil::cat("the switch is not kept over a restart: ", error.what()));
        }
        say(config_->agentEnabled() ? "is enabled" : "is disabled: the output stays as it is");
        apply();
    }

    const Options options_;
    Quil::EventLoop loop_;
    Corestore::EntityManager inputs_{loop_, options_.root, "l2ribd"};  // what the own producer writes
    Corestore::EntityManager readers_;                                 // the inputs as the merge reads them; the output
    const Quil::String directory_ = Mem::pathUnder(options_.root, Agent::Places::agent);
    const Quil::Ptr<L2Rib::FloodSetOutput> floodSets_ = L2Rib::floodSetOutputFactory("floodSets");
    const Quil::Ptr<L2Rib::AgentSourceDir> sources_ = L2Rib::agentSourceDirFactory("sources");
    const Quil::Ptr<L2Rib::PolicySmStatus> status_ = L2Rib::policySmStatusFactory("status");
    const Quil::Ptr<L2Rib::Config> config_ = L2Rib::configFactory("config");
    const ConfigFile file_{directory_};
    Outputs outputs_{readers_, directory_, status_, floodSets_, say};
    Agent::PolicySm policy_{loop_.clock(), outputs_.hosts(), outputs_.objects(), outputs_.raised()};
    Agent::FloodMerge floods_{loop_.clock(), floodSets_, [this] { outputs_.floodSetsChanged(); }};
    Agent::SourceMounts mounts_{readers_, sources_, policy_, floods_, say, [this] { outputs_.sourcesChanged(); }};
    Agent::SourceFinder finder_{loop_, options_.root, sources_, options_.hold, say};
};

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app{"The agent of the layer-2 routing information base"};
    app.add_option("--root", options.root, "directory of the shared-memory tables")->capture_default_str();
    app.add_option("--fdb", options.fdb, "a producer in this process: kernel, a file (as l2rib-source file), or none")
        ->capture_default_str();
    app.add_option("--hold", options.hold, "seconds for which the hosts of a source that has died stand")
        ->capture_default_str();
    app.add_flag("--cold", options.cold, "makes new output tables instead of going on with those that are there");
    app.add_option("--policy", options.policy, "a JSON file with preferences and the like; read again on SIGHUP");
    options.producer.addTo(app);
    return Apps::runProgram("l2ribd", app, argc, argv, [&] { Agentd(options).run(); });
}
