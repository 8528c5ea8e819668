#include "Plugin/LoaderImpl.h"

#include <dlfcn.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "Quil/Exception.h"
#include "Quil/Trace.h"

namespace Plugin::Impl {
namespace {

namespace fs = std::filesystem;
using Quil::cat;

Quil::Trace& trace() {
    static Quil::Trace& handle = Quil::Trace::handler("Plugin::Impl::LoaderImpl");
    return handle;
}

// The parts between separators, without empty ones.
std::vector<std::string> split(const std::string& text, const char* separators) {
    std::vector<std::string> parts;
    for (std::size_t at = 0; (at = text.find_first_not_of(separators, at)) != std::string::npos;) {
        const std::size_t end = std::min(text.find_first_of(separators, at), text.size());
        parts.push_back(text.substr(at, end - at));
        at = end;
    }
    return parts;
}

std::vector<std::string> directoriesOf(const std::string& dirName, const std::string& path) {
    std::vector<std::string> directories;
    for (const std::string& element : split(path, ":")) {
        directories.push_back(dirName.empty() ? element : element + "/" + dirName);
    }
    if (directories.empty()) directories.push_back(dirName.empty() ? "." : dirName);
    return directories;
}

std::string joined(const std::vector<std::string>& parts) {
    std::string text;
    for (const std::string& part : parts) text += (text.empty() ? "" : ", ") + part;
    return text;
}

// "libname.so" and "name.so" are called "name".
std::set<std::string> allNames(const std::vector<std::string>& directories) {
    std::set<std::string> names;
    for (const std::string& directory : directories) {
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(directory, error)) {
            if (entry.path().extension() != ".so") continue;
            const std::string stem = entry.path().stem().string();
            names.insert(stem.rfind("lib", 0) == 0 ? stem.substr(3) : stem);
        }
    }
    return names;
}

// What dlopen() and dlsym() last complained about.
std::string dynamicError() {
    const char* text = dlerror();
    return text ? text : "unknown error";
}

template <class F>
F* functionOf(void* handle, const char* symbol) {
    return reinterpret_cast<F*>(dlsym(handle, symbol));
}

}  // namespace

LoaderImpl::~LoaderImpl() = default;

void LoaderImpl::loadPlugins(const std::string& dirName, const std::string& pluginsToLoad, const std::string& path,
                             const std::string& entry) {
    loaded_.clear();
    failures_ = 0;
    const std::vector<std::string> directories = directoriesOf(dirName, path);
    std::vector<std::string> names = split(pluginsToLoad, ", \t\n");
    if (names.empty()) {
        const auto all = allNames(directories);
        names.assign(all.begin(), all.end());
        if (names.empty()) {
            ++failures_;
            trace().log(3, [&] { return cat(name_, ": no plug-ins in ", joined(directories)); });
        }
    }
    for (const std::string& name : names) {
        try {
            loadPlugin(name, directories, entry.empty() ? entrySymbol : entry);
        } catch (const std::exception& error) {
            ++failures_;
            trace().log(3, [&] { return cat(name_, ": plug-in ", name, ": ", error.what()); });
        }
    }
}

void LoaderImpl::loadPlugin(const std::string& name, const std::vector<std::string>& directories,
                            const std::string& entry) {
    if (name.find('/') != std::string::npos) throw Quil::SystemException("is a path, not a name");
    for (const std::string& directory : directories) {
        for (const std::string& file : {directory + "/lib" + name + ".so", directory + "/" + name + ".so"}) {
            if (fs::exists(file)) return open(file, entry);
        }
    }
    throw Quil::SystemException(cat("no lib", name, ".so or ", name, ".so in ", joined(directories)));
}

void LoaderImpl::open(const std::string& file, const std::string& entry) {
    // A relative path without a slash would be searched for elsewhere.
    void* handle = dlopen(fs::absolute(file).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) throw Quil::SystemException(dynamicError());
    const auto interface = functionOf<std::uint32_t()>(handle, interfaceSymbol);
    void* init = dlsym(handle, entry.c_str());
    const std::string fault = !interface ? cat("has no ", interfaceSymbol, "()")
                              : interface() != interfaceNumber_
                                  ? cat("is built for interface ", interface(), ", not ", interfaceNumber_)
                              : !init ? cat("has no ", entry, "()")
                                      : "";
    if (!fault.empty()) {
        dlclose(handle);
        throw Quil::SystemException(cat(file, " ", fault));
    }
    doCallEntry(init);
    loaded_.push_back(file);
    trace().log(5, [&] { return cat(name_, ": loaded ", file); });
}

}  // namespace Plugin::Impl
