#include "Memtab/Util.h"

#include <unistd.h>

#include <ctime>
#include <fstream>

namespace Memtab::Util {

void writeCorruptionFile(const Quil::String& directory, const Quil::String& table, const Quil::String& message) {
    std::ofstream file(directory + "/corruption", std::ios::app);
    if (!file) return;
    char when[32];
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    std::strftime(when, sizeof when, "%Y-%m-%dT%H:%M:%SZ", gmtime_r(&now, &utc));
    file << when << " pid " << getpid() << " " << table << ": " << message << "\n";
}

}  // namespace Memtab::Util
