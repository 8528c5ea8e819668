// SharedFile.h: a file of shared memory, mapped; only this process and its children ever see it.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace bench {

class SharedFile {
 public:
    SharedFile(const std::string& path, std::size_t size) : size_(size) {
        const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
        if (fd < 0 || posix_fallocate(fd, 0, static_cast<off_t>(size)) != 0) std::abort();
        base_ = static_cast<std::byte*>(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
        if (base_ == MAP_FAILED) std::abort();
        close(fd);
        unlink(path.c_str());
        std::memset(base_, 0, size);  // a page touched for the first time would cost more than what is measured
    }
    ~SharedFile() { munmap(base_, size_); }
    std::byte* base() const { return base_; }
    std::size_t size() const { return size_; }

 private:
    std::size_t size_;
    std::byte* base_;
};

}  // namespace bench
