// Types.h: enters the values and entities of the namespace in the type registry. (A set of tuples has no text to be
// made from, an enumeration its own look-up.)
#pragma once

#include "Quil/Export.h"

namespace L2Rib {

// Idempotent; for programs that work with types by name.
L2RIB_EXPORT void registerTypes();

}  // namespace L2Rib
