#include "l2rib/TableFiles.h"

#include <algorithm>
#include <filesystem>

#include "Quil/Exception.h"

namespace Tool {

namespace fs = std::filesystem;

std::vector<TableFiles> findTables(const std::string& root, const std::vector<std::string>& names) {
    std::vector<TableFiles> tables;
    for (const std::string& name : names) {
        const std::string directory = root + "/" + name;
        if (!fs::exists(directory + "/fenix"))
            throw Quil::SystemException(Quil::cat("no table ", name, " under ", root));
        tables.push_back({name, directory});
    }
    if (!names.empty()) return tables;
    std::error_code error;
    for (fs::recursive_directory_iterator at(root, error), end; !error && at != end; at.increment(error)) {
        if (at->path().filename() != "fenix") continue;
        const fs::path directory = at->path().parent_path();
        tables.push_back({fs::relative(directory, root).string(), directory.string()});
    }
    if (error) throw Quil::SystemException(Quil::cat(root, ": ", error.message()));
    if (tables.empty()) throw Quil::SystemException(Quil::cat("no tables under ", root));
    std::sort(tables.begin(), tables.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    return tables;
}

}  // namespace Tool
