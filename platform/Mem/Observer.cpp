#include "Mem/Observer.h"

namespace Mem {

Observer::~Observer() = default;
#ifdef L2RIB_OBSERVER
Observer* observer = nullptr;
#endif

}  // namespace Mem
