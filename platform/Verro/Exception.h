// Exception.h: what the shared-memory engine raises.
#pragma once

#include "Quil/Exception.h"

namespace Verro {

// The memory of a table does not hang together. Reported to the table's corruption hook; never reaches a consumer.
class L2RIB_EXPORT CorruptionDetectedException : public Quil::Exception {
 public:
    using Exception::Exception;
    ~CorruptionDetectedException() override;
};

// A table cannot be set up as asked: names too long, a second parent, atomics the processor lacks.
class L2RIB_EXPORT InvalidInitializeException : public Quil::Exception {
 public:
    using Exception::Exception;
    ~InvalidInitializeException() override;
};

}  // namespace Verro
