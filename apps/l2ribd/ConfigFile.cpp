#include "l2ribd/ConfigFile.h"

#include <fstream>
#include <sstream>

#include "Mem/Files.h"
#include "common/JsonObject.h"

ConfigFile::ConfigFile(const Quil::String& directory) : path_(directory + "/config.json") {
    Mem::Files::makeDirectories(directory);
}

bool ConfigFile::readEnabled() const {
    if (!Mem::Files::open(path_, false)) return true;
    std::ifstream file(path_);
    std::ostringstream text;
    text << file.rdbuf();
    bool enabled = true;
    try {
        const auto json = Apps::parseJson(text.str());
        Apps::JsonObject object(json);
        object.require("agentEnabled", [&](const auto& value) { enabled = value.template get<bool>(); });
        object.end();
    } catch (const Quil::RangeException& error) {
        throw Quil::RangeException(error.what(), path_);
    }
    return enabled;
}

void ConfigFile::writeEnabled(bool enabled) const {
    const auto text = Apps::Json{{"agentEnabled", enabled}}.dump() + "\n";
    const auto fresh = path_ + ".new";
    {
        const auto file = Mem::Files::create(fresh);
        Mem::Files::write(file.get(), fresh, text.data(), text.size());
    }
    Mem::Files::rename(fresh, path_);
}
