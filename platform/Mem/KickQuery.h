// KickQuery.h: asks a table's writer who reads it.
#pragma once

#include <optional>
#include <vector>

#include "Mem/KickProtocol.h"
#include "Quil/Export.h"
#include "Quil/Text.h"

namespace Mem {

struct ReaderList {
    std::vector<KickReader> readers;
    std::uint64_t sequence = 0;  // of the writer's last change
};

// Nothing when nobody writes the table, or it does not answer within the milliseconds. Blocks until then.
L2RIB_EXPORT std::optional<ReaderList> askForReaders(const Quil::String& directory, int timeout);

}  // namespace Mem
