// FileDescriptor.h: owns a file descriptor.
#pragma once

#include <utility>

#include "Quil/Export.h"

namespace Quil {

class L2RIB_EXPORT FileDescriptor {
 public:
    FileDescriptor() = default;
    explicit FileDescriptor(int fd) : fd_(fd) {}
    FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~FileDescriptor();
    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

 private:
    int fd_ = -1;
};

}  // namespace Quil
