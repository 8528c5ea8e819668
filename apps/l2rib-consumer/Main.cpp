// l2rib-consumer: hosts consumers of the output host table that are written as plug-ins, until SIGTERM or SIGINT.
//
// Plug-ins find their settings in the environment; --set and --source-filter put them there.
#include <cstdlib>
#include <iostream>

#include "L2Rib/L2Rib.h"
#include "common/Names.h"
#include "common/Program.h"
#include "common/Signals.h"

namespace {

struct Options {
    std::string root = "/dev/shm/l2rib";
    std::string pluginDir;
    std::string plugins;
    std::string path;
    std::string sourceFilter;
    std::vector<std::string> settings;  // "NAME=VALUE"
};

void say(const Quil::String& text) { std::cerr << "l2rib-consumer: " << text << std::endl; }

void setEnvironment(const Options& options) {
    if (!options.sourceFilter.empty()) {
        Quil::atField("--source-filter", [&] { Apps::sourceMaskOf(options.sourceFilter); });
        setenv("L2RIB_SOURCE_FILTER", options.sourceFilter.c_str(), 1);
    }
    for (const std::string& setting : options.settings) {
        const auto equals = setting.find('=');
        if (equals == std::string::npos || equals == 0)
            throw Quil::RangeException("is not NAME=VALUE", "--set " + setting);
        setenv(setting.substr(0, equals).c_str(), setting.substr(equals + 1).c_str(), 1);
    }
}

void run(const Options& options) {
    setEnvironment(options);
    Apps::alwaysSaid({"Plugin::Impl::LoaderImpl"}, say);
    Quil::EventLoop loop;
    const Apps::EndSignals signals(loop);
    auto em = Quil::makePtr<Corestore::EntityManager>(loop, options.root, "l2rib-consumer");
    auto output = L2Rib::hostOutputFactory("host");
    em->mount("l2rib/output", output, L2Rib::TableInfo().hostOutputInfo(QuilMemtab::reader));

    auto context = L2Rib::Plugin::contextFactory();
    context->entityManagerIs(em);
    context->l2RibOutputIs(output);
    context->clockIs(loop.clock());
    // A plug-in may keep its context until the process is gone; what hangs on the loop goes with it.
    struct Release {
        L2Rib::Plugin::Context& context;
        ~Release() {
            context.clockIs(nullptr);
            context.l2RibOutputIs(nullptr);
            context.entityManagerIs(nullptr);
        }
    } release{*context};

    L2Rib::Plugin::loaderFactory()->loadPlugins(options.pluginDir, context, options.plugins, options.path);
    const auto& loader = L2Rib::Plugin::DefaultPluginLoader();
    if (loader.loaded().empty()) throw Quil::SystemException("no plug-in was loaded");
    say(Quil::cat("ready, ", loader.loaded().size(), " plug-ins, ", loader.failures(), " not loaded, ",
                  context->pluginCount(), " clients of ", options.root));
    // What a plug-in throws is said; it goes on, and so do the others.
    for (bool isOver = false; !isOver;) {
        try {
            loop.run();
            isOver = true;
        } catch (const std::exception& error) {
            say(error.what());
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app{"Hosts consumers of the layer-2 routing information base"};
    app.add_option("--root", options.root, "directory of the shared-memory tables")->capture_default_str();
    app.add_option("--plugin-dir", options.pluginDir, "directory of the plug-ins")->required();
    app.add_option("--plugins", options.plugins, "their names, separated by commas; none: all in the directory");
    app.add_option("--path", options.path,
                   "look for --plugin-dir under each of these directories, separated by colons");
    app.add_option("--source-filter", options.sourceFilter,
                   "the sources whose hosts are wanted, separated by commas (bgp,vxlan-static); default: all");
    app.add_option("--set", options.settings, "NAME=VALUE: a setting of a plug-in");
    return Apps::runProgram("l2rib-consumer", app, argc, argv, [&] { run(options); });
}
