#include "Mem/Atomics.h"

namespace Mem::Atomics {

bool supported() {
#if defined(__i386__)
    // A 64-bit access is one unit from the Pentium on, which is when cmpxchg8b came; SSE2 implies both.
    return __builtin_cpu_supports("sse2") != 0;
#else
    return __atomic_always_lock_free(8, nullptr);
#endif
}

}  // namespace Mem::Atomics
