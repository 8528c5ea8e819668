#include "L2Rib/Plugin/Loader.h"

#include "Quil/Trace.h"

namespace L2Rib::Plugin {
namespace {

Quil::Trace& trace() {
    static Quil::Trace& handle = Quil::Trace::handler("L2Rib::Plugin::Loader");
    return handle;
}

PluginLoader processWide;

}  // namespace

PluginLoader::PluginLoader() : LoaderImpl("L2RibPluginLoader", interfaceNumber) {}
PluginLoader::~PluginLoader() = default;

PluginLoader& DefaultPluginLoader() { return processWide; }

void PluginLoader::doCallEntry(void* entry) { reinterpret_cast<void (*)(const Quil::Ptr<Context>&)>(entry)(context_); }

Loader::Loader() : Entity("loader") {}
Loader::~Loader() = default;

void Loader::loadPlugins(Quil::String dirName, const Quil::Ptr<Context>& context, Quil::String pluginsToLoad,
                         Quil::String path) {
    trace().log(9, [&] {
        return Quil::cat(
            "void L2Rib::Plugin::Loader::loadPlugins(Quil::String, const Ptr&, Quil::String, Quil::String)", " ( ",
            dirName, ", ", pluginsToLoad, ", ", path);
    });
    struct Held {  // cleared also when loading throws
        PluginLoader& loader;
        ~Held() { loader.contextIs(nullptr); }
    } held{DefaultPluginLoader()};
    held.loader.contextIs(context);
    held.loader.loadPlugins(dirName, pluginsToLoad, path, "");
}

const Quil::Type& Loader::fwkType() const { return Quil::typeOf<Loader>(); }

void Loader::fwkDeclare(Quil::TypeBuilder<Loader>& type) {
    type.name("L2Rib::Plugin::Loader").creator<>([] { return loaderFactory(); });
}

Quil::Ptr<Loader> loaderFactory() { return Quil::makePtr<Loader>(); }

}  // namespace L2Rib::Plugin
