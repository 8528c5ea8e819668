#include "Quil/Ptr.h"

namespace Quil {
namespace {
bool threadSafeCounting = false;  // set before the second thread starts
}

void countingIsThreadSafe(bool threadSafe) { threadSafeCounting = threadSafe; }

Counted::~Counted() = default;

void Counted::retain() const {
    if (threadSafeCounting) {
        references_.fetch_add(1, std::memory_order_relaxed);
    } else {
        references_.store(references_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }
}

void Counted::release() const {
    std::uint32_t before;
    if (threadSafeCounting) {
        before = references_.fetch_sub(1, std::memory_order_acq_rel);
    } else {
        before = references_.load(std::memory_order_relaxed);
        references_.store(before - 1, std::memory_order_relaxed);
    }
    if (before == 1) delete this;
}

}  // namespace Quil
