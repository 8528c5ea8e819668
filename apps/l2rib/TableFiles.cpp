#include "l2rib/TableFiles.h"

#include <algorithm>
#include <filesystem>

#include "Mem/Files.h"

namespace Tool {

namespace fs = std::filesystem;

namespace {

// The tables in this directory under the root and below.
std::vector<TableFiles> tablesUnder(const std::string& root, const std::string& name) {
    std::vector<TableFiles> tables;
    std::error_code error;
    const std::string top = Mem::pathUnder(root, name);
    for (fs::recursive_directory_iterator at(top, error), end; !error && at != end; at.increment(error)) {
        if (at->path().filename() != "fenix") continue;
        const fs::path directory = at->path().parent_path();
        tables.push_back({fs::relative(directory, Mem::pathUnder(root, "")).string(), directory.string()});
    }
    if (error && error != std::errc::no_such_file_or_directory) {
        throw Quil::SystemException(Quil::cat(top, ": ", error.message()));
    }
    std::sort(tables.begin(), tables.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    return tables;
}

}  // namespace

std::vector<TableFiles> findTables(const std::string& root, const std::vector<std::string>& names) {
    std::vector<TableFiles> tables;
    for (const std::string& name : names.empty() ? std::vector<std::string>{""} : names) {
        const auto found = tablesUnder(root, name);
        if (found.empty()) {
            const std::string what = name.empty() ? "no tables" : "no table " + name;
            throw Quil::SystemException(Quil::cat(what, " under ", root));
        }
        tables.insert(tables.end(), found.begin(), found.end());
    }
    return tables;
}

}  // namespace Tool
