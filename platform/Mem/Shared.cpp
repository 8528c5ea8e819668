#include "Mem/Shared.h"

namespace Mem {
namespace {
const char* const temporary = ".new";
}

Shared::Shared(Quil::String path, FileDescriptor file, bool writable)
    : Segment(std::move(path)), file_(std::move(file)), writable_(writable) {}

Shared::~Shared() {
    if (base_) Files::unmap(base_, size_);
}

void Shared::mapTo(std::uint64_t size) {
    void* base = base_ ? Files::remap(base_, name_, size_, size) : Files::map(file_.get(), name_, size, writable_);
    if (writable_ && size > size_) Files::populate(base, size_, size);
    base_ = static_cast<std::byte*>(base);
    size_ = size;
}

bool Shared::refresh() {
    const std::uint64_t size = Files::size(file_.get(), name_);
    if (size == size_ || size == 0) return false;
    mapTo(size);
    return true;
}

void Shared::doResize(std::uint64_t size) {
    if (size > size_) {
        Files::lengthen(file_.get(), name_, size_, size);
        mapTo(size);
    } else if (size < size_) {
        mapTo(size);
        Files::shorten(file_.get(), name_, size);
    }
}

std::unique_ptr<Segment> SharedDirectory::create(const Quil::String& name, std::uint64_t size) {
    Files::makeDirectories(path_);
    auto segment = std::make_unique<Shared>(file(name), Files::create(file(name) + temporary), true);
    segment->resize(size);
    return segment;
}

void SharedDirectory::publish(const Quil::String& name) { Files::rename(file(name) + temporary, file(name)); }

void SharedDirectory::withdraw(const Quil::String& name) { Files::remove(file(name) + temporary); }

std::unique_ptr<Segment> SharedDirectory::open(const Quil::String& name, For purpose) {
    const bool writable = purpose == For::writing;
    FileDescriptor fd = Files::open(file(name), writable);
    if (!fd) return nullptr;
    auto segment = std::make_unique<Shared>(file(name), std::move(fd), writable);
    if (!segment->refresh()) return nullptr;
    return segment;
}

void SharedDirectory::remove(const Quil::String& name) { Files::remove(file(name)); }

}  // namespace Mem
