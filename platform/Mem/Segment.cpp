#include "Mem/Segment.h"

#include <limits>

#include "Quil/Exception.h"

namespace Mem {

Segment::~Segment() = default;
Directory::~Directory() = default;

void Segment::resize(std::uint64_t size) {
    if (size > static_cast<std::uint64_t>(std::numeric_limits<std::ptrdiff_t>::max())) {
        throw Quil::MemoryResourceException(Quil::cat(name_, ": ", size, " bytes do not fit into this process"));
    }
    std::byte* before = base_;
    doResize(size);
    for (AutoMemMoveBase* held = held_; held; held = held->next_) {
        if (held->pointer_) held->pointer_ = base_ + (held->pointer_ - before);
    }
}

}  // namespace Mem
