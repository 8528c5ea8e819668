// Observer.h: the two seams at which tests look in: every store to shared memory and every file operation.
//
// In builds with L2RIB_OBSERVER both report here before they act, so that a test can count them, cut the process off,
// widen a race or fail the n-th operation. In other builds nothing of this exists.
#pragma once

#include <cstddef>

#include "Quil/Export.h"

namespace Mem {

class L2RIB_EXPORT Observer {
 public:
    virtual ~Observer();
    virtual void onStore(const void* /*address*/, std::size_t /*size*/) {}
    // The errno with which the operation is to fail without being tried; 0 lets it go ahead.
    virtual int onFile(const char* /*operation*/, const char* /*path*/) { return 0; }
};

#ifdef L2RIB_OBSERVER
// Set while no other thread uses the engine.
L2RIB_EXPORT extern Observer* observer;
inline void observeStore(const void* address, std::size_t size) {
    if (observer) [[unlikely]]
        observer->onStore(address, size);
}
inline int observeFile(const char* operation, const char* path) {
    return observer ? observer->onFile(operation, path) : 0;
}
#else
inline void observeStore(const void*, std::size_t) {}
inline int observeFile(const char*, const char*) { return 0; }
#endif

}  // namespace Mem
