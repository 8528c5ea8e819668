// Util.h: the record of a corruption that was met.
#pragma once

#include "Quil/Export.h"
#include "Quil/Text.h"

namespace Memtab::Util {

// Appends time, process, table and message as one line to the file "corruption" of the table's directory. Where that
// cannot be written (a reader of another user), nothing happens: the trace has it too.
L2RIB_EXPORT void writeCorruptionFile(const Quil::String& directory, const Quil::String& table,
                                      const Quil::String& message);

}  // namespace Memtab::Util
