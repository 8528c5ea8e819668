#include "l2ribd/ConfigFile.h"

#include "Mem/Files.h"
#include "common/JsonFile.h"

ConfigFile::ConfigFile(const Quil::String& directory) : path_(directory + "/config.json") {
    Mem::Files::makeDirectories(directory);
}

bool ConfigFile::readEnabled() const {
    if (!Mem::Files::open(path_, false)) return true;
    return Apps::readJson(path_, [](const Apps::Json& json) {
        bool enabled = true;
        Apps::JsonObject object(json);
        object.require("agentEnabled", [&](const auto& value) { enabled = value.template get<bool>(); });
        object.end();
        return enabled;
    });
}

void ConfigFile::writeEnabled(bool enabled) const { Apps::writeJson(path_, {{"agentEnabled", enabled}}); }
