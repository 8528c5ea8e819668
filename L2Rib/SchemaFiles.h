// SchemaFiles.h: the files that assertions of this layer name, one for each group of types.
#pragma once

namespace L2Rib::SchemaFiles {

constexpr const char* values = "src-includes/L2Rib/L2Rib";         // identifiers, tuples, destinations
constexpr const char* records = "src-includes/L2Rib/L2RibMemtab";  // records and tables
constexpr const char* util = "src-includes/L2Rib/L2RibUtil";       // the object-tuple manager

}  // namespace L2Rib::SchemaFiles
