#include "Memtab/Exception.h"

namespace Memtab {

TableFullException::~TableFullException() = default;

}  // namespace Memtab
