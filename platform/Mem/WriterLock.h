// WriterLock.h: at most one writer of a table, by a lock on its fenix file.
//
// The lock belongs to the open file (fcntl's open-file-description locks), so it also holds between two objects of one
// process, and goes with the process however that ends.
#pragma once

#include "Quil/Export.h"

namespace Mem {

struct L2RIB_EXPORT WriterLock {
    // False when another holds it. The descriptor must be open for writing and stay open.
    static bool acquire(int fd);
    // Whether some writer holds it; asks without taking it.
    static bool isHeld(int fd);
};

}  // namespace Mem
