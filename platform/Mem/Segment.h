// Segment.h: a run of mapped memory that can grow: a file of a table, or private memory in its place.
//
// Owner     One object is one mapping. The writer's segment is writable, a reader's is not.
// Lifetime  Pointers into a segment are good until it is resized; AutoMemMove keeps a held pointer right across that.
// Errors    MemoryResourceException when a resize fails; the segment is then as it was.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "Quil/Export.h"
#include "Quil/Text.h"

namespace Mem {

class AutoMemMoveBase;

class L2RIB_EXPORT Segment {
 public:
    virtual ~Segment();
    Segment(const Segment&) = delete;
    Segment& operator=(const Segment&) = delete;

    const Quil::String& name() const { return name_; }  // for messages: the path of a file
    std::byte* base() const { return base_; }
    std::uint64_t size() const { return size_; }  // bytes that may be touched

    // Writer: makes the segment this long. The mapping may move.
    void resize(std::uint64_t size);
    // Reader: maps what there is now. Returns whether the mapping changed.
    virtual bool refresh() = 0;

 protected:
    explicit Segment(Quil::String name) : name_(std::move(name)) {}
    virtual void doResize(std::uint64_t size) = 0;  // sets base_ and size_

    const Quil::String name_;
    std::byte* base_ = nullptr;
    std::uint64_t size_ = 0;

 private:
    friend class AutoMemMoveBase;
    AutoMemMoveBase* held_ = nullptr;  // pointers to move along, last registered first
};

// Registers a pointer into a segment for the length of a scope.
class L2RIB_EXPORT AutoMemMoveBase {
 protected:
    AutoMemMoveBase(Segment& segment, void* pointer)
        : pointer_(static_cast<std::byte*>(pointer)), segment_(segment), next_(segment.held_) {
        segment.held_ = this;
    }
    ~AutoMemMoveBase() { segment_.held_ = next_; }
    AutoMemMoveBase(const AutoMemMoveBase&) = delete;
    AutoMemMoveBase& operator=(const AutoMemMoveBase&) = delete;
    std::byte* pointer_;

 private:
    friend class Segment;
    Segment& segment_;
    AutoMemMoveBase* next_;
};

template <class T>
class AutoMemMove : AutoMemMoveBase {
 public:
    AutoMemMove(Segment& segment, T* pointer) : AutoMemMoveBase(segment, pointer) {}
    T* get() const { return reinterpret_cast<T*>(pointer_); }
    T& operator*() const { return *get(); }
};

// Where the segments of one table live, by name.
class L2RIB_EXPORT Directory {
 public:
    virtual ~Directory();
    // A new segment of zeros. Nobody sees it under its name before publish(): it takes the place of an older one
    // there, which stays whole for those who have it mapped.
    virtual std::unique_ptr<Segment> create(const Quil::String& name, std::uint64_t size) = 0;
    virtual void publish(const Quil::String& name) = 0;
    // Drops what create() made and nobody will publish.
    virtual void withdraw(const Quil::String& name) = 0;
    enum class For { reading, writing };
    // What stands there under this name; null when there is none or it is empty.
    virtual std::unique_ptr<Segment> open(const Quil::String& name, For purpose = For::reading) = 0;
    virtual void remove(const Quil::String& name) = 0;
};

}  // namespace Mem
