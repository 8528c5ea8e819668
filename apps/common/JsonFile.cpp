#include "common/JsonFile.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include "Mem/Files.h"

namespace Apps {

Json readJson(const Quil::String& path) {
    std::error_code error;
    namespace fs = std::filesystem;
    if (fs::exists(path, error) && !fs::is_regular_file(path, error)) throw Quil::RangeException("is no file");
    std::ifstream file(path);
    std::ostringstream text;
    if (file) text << file.rdbuf();
    if (!file.is_open() || file.bad()) throw Quil::RangeException("cannot be read");
    return parseJson(text.str());
}

void writeJson(const Quil::String& path, const Json& json) {
    const auto text = json.dump() + "\n";
    const auto fresh = path + ".new";
    {
        const auto file = Mem::Files::create(fresh);
        Mem::Files::write(file.get(), fresh, text.data(), text.size());
    }
    Mem::Files::rename(fresh, path);
}

}  // namespace Apps
