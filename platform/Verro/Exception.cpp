#include "Verro/Exception.h"

namespace Verro {

CorruptionDetectedException::~CorruptionDetectedException() = default;
InvalidInitializeException::~InvalidInitializeException() = default;

}  // namespace Verro
