#include "Quil/Trace.h"

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>

namespace Quil {
namespace {

Trace::Sink& sink() {
    static Trace::Sink s = [](const String& name, int level, const String& text) {
        std::fprintf(stderr, "%s %d %s\n", name.c_str(), level, text.c_str());
    };
    return s;
}

// The level that L2RIB_TRACE gives to the name, 0 when it does not name it.
int levelFromEnvironment(const String& name) {
    const char* setting = std::getenv("L2RIB_TRACE");
    std::string_view rest = setting ? setting : "";
    int level = 0;
    while (!rest.empty()) {
        const auto item = rest.substr(0, rest.find(','));
        rest.remove_prefix(std::min(rest.size(), item.size() + 1));
        const auto slash = item.rfind('/');
        if (slash == item.npos) continue;
        if (item.substr(0, slash) == name || item.substr(0, slash) == "*") parseNumber(item.substr(slash + 1), level);
    }
    return level;
}

}  // namespace

Trace::Trace(String name) : name_(std::move(name)) { levelIs(levelFromEnvironment(name_)); }

Trace& Trace::handler(const String& name) {
    static std::map<String, std::unique_ptr<Trace>> handlers;
    auto& handle = handlers[name];
    if (!handle) handle.reset(new Trace(name));
    return *handle;
}

Trace& Trace::defaultHandle() {
    static Trace& handle = handler("default");
    return handle;
}

void Trace::sinkIs(Sink newSink) { sink() = std::move(newSink); }

void Trace::emit(int level, const String& text) const { sink()(name_, level, text); }

}  // namespace Quil
