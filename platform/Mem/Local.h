// Local.h: the same on private memory: what a table lives in before it is mounted, and, with a reservation, one
// mapping that the threads of a test share as writer and readers.
#pragma once

#include <atomic>
#include <map>
#include <memory>

#include "Mem/Segment.h"

namespace Mem {

// The memory behind one name. With a reservation it never moves and may be used by several segments.
struct LocalMemory {
    LocalMemory(Quil::String name, std::uint64_t reservation);
    ~LocalMemory();
    LocalMemory(const LocalMemory&) = delete;
    LocalMemory& operator=(const LocalMemory&) = delete;
    void resize(std::uint64_t size);

    const Quil::String name;
    const std::uint64_t reservation;  // bytes; 0: none, the memory moves when it grows
    std::byte* base = nullptr;
    std::atomic<std::uint64_t> size{0};
};

class L2RIB_EXPORT Local : public Segment {
 public:
    Local(Quil::String name, std::shared_ptr<LocalMemory> memory);
    bool refresh() override;

 private:
    void doResize(std::uint64_t size) override;
    const std::shared_ptr<LocalMemory> memory_;
};

class L2RIB_EXPORT LocalDirectory : public Directory {
 public:
    explicit LocalDirectory(Quil::String name, std::uint64_t reservation = 0)
        : name_(std::move(name)), reservation_(reservation) {}
    std::unique_ptr<Segment> create(const Quil::String& name, std::uint64_t size) override;
    void publish(const Quil::String& name) override;
    void withdraw(const Quil::String& name) override;
    std::unique_ptr<Segment> open(const Quil::String& name, For purpose = For::reading) override;
    void remove(const Quil::String& name) override;

 private:
    const Quil::String name_;
    const std::uint64_t reservation_;
    std::map<Quil::String, std::shared_ptr<LocalMemory>> published_;
    std::map<Quil::String, std::shared_ptr<LocalMemory>> created_;
};

}  // namespace Mem
