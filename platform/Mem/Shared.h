// Shared.h: segments in named files, shared among processes.
//
// Files never get shorter under a reader: a truncation would kill whoever touches the lost pages. They are lengthened
// with their space allocated; what takes a file's place is a new file under a temporary name, renamed into place.
#pragma once

#include "Mem/Files.h"
#include "Mem/Segment.h"

namespace Mem {

class L2RIB_EXPORT Shared : public Segment {
 public:
    Shared(Quil::String path, FileDescriptor file, bool writable);
    ~Shared() override;
    bool refresh() override;

 private:
    void doResize(std::uint64_t size) override;
    void mapTo(std::uint64_t size);
    const FileDescriptor file_;
    const bool writable_;
};

class L2RIB_EXPORT SharedDirectory : public Directory {
 public:
    explicit SharedDirectory(Quil::String path) : path_(std::move(path)) {}
    const Quil::String& path() const { return path_; }
    std::unique_ptr<Segment> create(const Quil::String& name, std::uint64_t size) override;
    void publish(const Quil::String& name) override;
    void withdraw(const Quil::String& name) override;
    std::unique_ptr<Segment> open(const Quil::String& name, For purpose = For::reading) override;
    void remove(const Quil::String& name) override;

 private:
    Quil::String file(const Quil::String& name) const { return path_ + "/" + name; }
    const Quil::String path_;
};

}  // namespace Mem
