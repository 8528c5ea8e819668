// Types.h: enters every type of the namespace in the type registry.
#pragma once

#include "Quil/Export.h"

namespace L2Rib {

// Idempotent; for programs that work with types by name.
L2RIB_EXPORT void registerTypes();

}  // namespace L2Rib
