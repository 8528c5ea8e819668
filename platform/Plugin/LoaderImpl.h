// LoaderImpl.h: finds shared objects by name, opens them, and calls the entry point of each.
//
// Names     pluginsToLoad is a list separated by commas or blanks; empty: all "*.so" of the directory.
// Places    dirName under each element of the colon-separated path; an empty path is dirName itself, an empty dirName
// the
//           element itself. In each "lib<name>.so", then "<name>.so"; the first that is there is taken.
// Errors    What cannot be found, opened or initialised is one line at trace level 3, handle
// "Plugin::Impl::LoaderImpl",
//           and the next name is tried. A plug-in of another interface is refused before any code of it is called.
// Lifetime  What was opened stays open.
// Threads   Event-loop thread.
#pragma once

#include <string>
#include <vector>

#include "Quil/Export.h"
#include "Quil/Text.h"

namespace Plugin::Impl {

class L2RIB_EXPORT LoaderImpl {
 public:
    // Plug-ins export this function; see loadPlugins().
    static constexpr const char* interfaceSymbol = "l2ribPluginInterface";
    static constexpr const char* entrySymbol = "l2ribPluginInit";

    // name: in traces. interfaceNumber: what a plug-in's l2ribPluginInterface() must return.
    LoaderImpl(Quil::String name, std::uint32_t interfaceNumber)
        : name_(std::move(name)), interfaceNumber_(interfaceNumber) {}
    virtual ~LoaderImpl();
    LoaderImpl(const LoaderImpl&) = delete;
    LoaderImpl& operator=(const LoaderImpl&) = delete;

    const Quil::String& name() const { return name_; }
    // entry: the name of the entry point; empty: entrySymbol.
    void loadPlugins(const std::string& dirName, const std::string& pluginsToLoad, const std::string& path,
                     const std::string& entry);
    // The files of the plug-ins that the last call loaded, in order, and how many it could not.
    const std::vector<std::string>& loaded() const { return loaded_; }
    std::size_t failures() const { return failures_; }

 protected:
    // Calls the plug-in's entry point with what its kind of plug-in is given. May throw.
    virtual void doCallEntry(void* entry) = 0;

 private:
    void loadPlugin(const std::string& name, const std::vector<std::string>& directories, const std::string& entry);
    void open(const std::string& file, const std::string& entry);

    const Quil::String name_;
    const std::uint32_t interfaceNumber_;
    std::vector<std::string> loaded_;
    std::size_t failures_ = 0;
};

}  // namespace Plugin::Impl
