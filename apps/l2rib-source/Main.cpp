// l2rib-source: a producer in a process of its own: publishes what the kernel's forwarding tables or a file say, as
// sources that announce themselves to the agent, until SIGTERM or SIGINT.
#include <iostream>

#include "common/Program.h"
#include "common/Signals.h"
#include "producer/Producer.h"

namespace {

void say(const Quil::String& text) { std::cerr << "l2rib-source: " << text << std::endl; }

}  // namespace

int main(int argc, char** argv) {
    std::string root = "/dev/shm/l2rib", path;
    Producer::Options options;
    CLI::App app{"A producer of the layer-2 routing information base"};
    app.add_option("--root", root, "directory of the shared-memory tables")->capture_default_str();
    options.addTo(app);
    app.require_subcommand(1)->fallthrough();
    const auto* kernel = app.add_subcommand("kernel", "the bridges and VXLAN devices of this network namespace");
    auto* file = app.add_subcommand("file", "a file, which is followed");
    file->add_option("FILE", path, "sources (docs/tools.md), or the JSON of bridge -j fdb show")->required();
    return Apps::runProgram("l2rib-source", app, argc, argv, [&] {
        Quil::EventLoop loop;
        const Apps::EndSignals signals(loop);
        Apps::alwaysSaid({"Quil::AttrLog", "Fdb"}, say);
        Corestore::EntityManager em(loop, root, "l2rib-source");
        const auto producer =
            kernel->parsed() ? Producer::kernelProducer(em, options) : Producer::fileProducer(em, options, path, say);
        say(Quil::cat("ready under ", root));
        loop.run();
        producer->withdraw();
        say(Quil::cat("ends; entries not published: ", producer->summary()));
    });
}
