#include "l2ribd/ConfigFile.h"

#include <fstream>

#include "Mem/Files.h"
#include "common/JsonObject.h"

ConfigFile::ConfigFile(const Quil::String& directory) : path_(directory + "/config.json") {
    Mem::Files::makeDirectories(directory);
}

bool ConfigFile::readEnabled() const {
    std::ifstream file(path_);
    if (!file) return true;
    const auto json = Apps::Json::parse(file, nullptr, false);
    bool enabled = true;
    Quil::atField(path_.c_str(), [&] {
        Apps::JsonObject object(json);
        object.require("agentEnabled", [&](const auto& value) { enabled = value.template get<bool>(); });
        object.end();
    });
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
