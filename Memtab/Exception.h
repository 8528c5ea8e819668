// Exception.h: what the table engine raises beside Verro::CorruptionDetectedException.
#pragma once

#include "Quil/Exception.h"

namespace Memtab {

// A table of fixed capacity has no free slot. Nothing was changed or announced.
class L2RIB_EXPORT TableFullException : public Quil::Exception {
 public:
    using Exception::Exception;
    ~TableFullException() override;
};

}  // namespace Memtab
