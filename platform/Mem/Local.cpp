#include "Mem/Local.h"

#include <sys/mman.h>

#include <cerrno>
#include <cstring>

#include "Quil/Exception.h"

namespace Mem {
namespace {

[[noreturn]] void outOfMemory(const Quil::String& name, std::uint64_t size) {
    throw Quil::MemoryResourceException(
        Quil::cat(name, ": ", size, " bytes of private memory: ", std::strerror(errno)));
}

std::byte* mapPrivate(const Quil::String& name, std::uint64_t size) {
    void* base = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (base == MAP_FAILED) outOfMemory(name, size);
    return static_cast<std::byte*>(base);
}

}  // namespace

LocalMemory::LocalMemory(Quil::String memoryName, std::uint64_t reserved)
    : name(std::move(memoryName)), reservation(reserved) {
    if (reservation) base = mapPrivate(name, reservation);
}

LocalMemory::~LocalMemory() {
    if (base) munmap(base, reservation ? reservation : size.load());
}

void LocalMemory::resize(std::uint64_t newSize) {
    if (reservation) {
        errno = ENOMEM;
        if (newSize > reservation) outOfMemory(name, newSize);
    } else if (!base) {
        base = mapPrivate(name, newSize);
    } else {
        void* moved = mremap(base, size.load(), newSize, MREMAP_MAYMOVE);
        if (moved == MAP_FAILED) outOfMemory(name, newSize);
        base = static_cast<std::byte*>(moved);
    }
    size.store(newSize, std::memory_order_release);
}

Local::Local(Quil::String name, std::shared_ptr<LocalMemory> memory)
    : Segment(std::move(name)), memory_(std::move(memory)) {
    Local::refresh();
}

bool Local::refresh() {
    const std::uint64_t size = memory_->size.load(std::memory_order_acquire);
    const bool changed = size != size_ || base_ != memory_->base;
    base_ = memory_->base;
    size_ = size;
    return changed;
}

void Local::doResize(std::uint64_t size) {
    if (size != size_) memory_->resize(size);
    refresh();
}

std::unique_ptr<Segment> LocalDirectory::create(const Quil::String& name, std::uint64_t size) {
    auto memory = std::make_shared<LocalMemory>(name_ + "/" + name, reservation_);
    memory->resize(size);
    created_[name] = memory;
    return std::make_unique<Local>(memory->name, memory);
}

void LocalDirectory::publish(const Quil::String& name) { published_[name] = created_.extract(name).mapped(); }

void LocalDirectory::withdraw(const Quil::String& name) { created_.erase(name); }

std::unique_ptr<Segment> LocalDirectory::open(const Quil::String& name, For /*purpose*/) {
    const auto found = published_.find(name);
    return found == published_.end() ? nullptr : std::make_unique<Local>(found->second->name, found->second);
}

void LocalDirectory::remove(const Quil::String& name) { published_.erase(name); }

}  // namespace Mem
