// Loader.h: loads consumers that are written as plug-ins (see Plugin.h for what a plug-in is made of).
//
// Threads   Event-loop thread of the hosting process. Plug-ins are initialised one after the other, within the call.
// Errors    What cannot be loaded is traced at level 3, handle "Plugin::Impl::LoaderImpl"; see Plugin/LoaderImpl.h.
#pragma once

#include "L2Rib/Plugin/Context.h"
#include "Plugin/LoaderImpl.h"

namespace L2Rib::Plugin {

// Counts up with every change that a plug-in built before it would trip over.
constexpr std::uint32_t interfaceNumber = 1;

class L2RIB_EXPORT Loader : public Quil::Entity {
 public:
    Loader();
    ~Loader() override;

    // Gives the context to each of the plug-ins, found as LoaderImpl.h says.
    void loadPlugins(Quil::String dirName, const Quil::Ptr<Context>& context, Quil::String pluginsToLoad,
                     Quil::String path);

    const Quil::Type& fwkType() const override;
    static void fwkDeclare(Quil::TypeBuilder<Loader>& type);
};

L2RIB_EXPORT Quil::Ptr<Loader> loaderFactory();

// The one loader of a process, which does the work: made with the library.
class L2RIB_EXPORT PluginLoader : public ::Plugin::Impl::LoaderImpl {
 public:
    PluginLoader();
    ~PluginLoader() override;
    // For the duration of a load what every plug-in of it receives; else null.
    const Quil::Ptr<Context>& context() const { return context_; }
    void contextIs(const Quil::Ptr<Context>& context) { context_ = context; }

 private:
    void doCallEntry(void* entry) override;
    Quil::Ptr<Context> context_;
};
L2RIB_EXPORT PluginLoader& DefaultPluginLoader();

}  // namespace L2Rib::Plugin
