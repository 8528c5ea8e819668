// ConfigFile: the agent's configuration, kept under the root over a restart: l2rib/agent/config.json.
#pragma once

#include "Quil/Text.h"

class ConfigFile {
 public:
    // Makes the directory where it is not there.
    explicit ConfigFile(const Quil::String& directory);
    // True when there is no file. A file that cannot be read is a range exception: nothing is merged against the
    // operator's will.
    bool readEnabled() const;
    void writeEnabled(bool enabled) const;

 private:
    const Quil::String path_;
};
