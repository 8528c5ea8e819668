// TableFiles.h: the tables under a root, found by their files; no writer is needed.
#pragma once

#include <string>
#include <vector>

namespace Tool {

struct TableFiles {
    std::string name;       // "l2rib/output/host/host"
    std::string directory;  // with the root before it
};

// All tables, by name; or those named: each name is that of a table, or of a directory with tables in it
// ("l2rib/input/kernel-bgp"). Raises SystemException for a name that is neither, and for a root without any.
std::vector<TableFiles> findTables(const std::string& root, const std::vector<std::string>& names);

}  // namespace Tool
