#include "Quil/FileDescriptor.h"

#include <unistd.h>

namespace Quil {

FileDescriptor::~FileDescriptor() {
    if (fd_ >= 0) close(fd_);
}

}  // namespace Quil
