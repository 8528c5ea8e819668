// Ptr.h: counted pointers to entities.
//
// Threads   Counting is plain by default: an entity belongs to one event-loop thread. A process that shares entities
//           among threads calls countingIsThreadSafe(true) before it starts the second thread; counts are then
//           changed by locked instructions.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "Quil/Export.h"

namespace Quil {

L2RIB_EXPORT void countingIsThreadSafe(bool threadSafe);

class L2RIB_EXPORT Counted {
 public:
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
    void retain() const;
    void release() const;  // deletes the object with the last reference
    std::uint32_t references() const { return references_.load(std::memory_order_relaxed); }

 protected:
    Counted() = default;
    virtual ~Counted();

 private:
    mutable std::atomic<std::uint32_t> references_{0};
};

template <class T>
class Ptr {
 public:
    Ptr() = default;
    Ptr(std::nullptr_t) {}              // NOLINT: a null pointer is one
    Ptr(T* object) : object_(object) {  // NOLINT: "Ptr(this)" and factories
        if (object_) object_->retain();
    }
    Ptr(const Ptr& other) : Ptr(other.object_) {}
    Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    template <class U>
    Ptr(const Ptr<U>& other) : Ptr(other.get()) {}  // NOLINT: to a base, to const
    ~Ptr() {
        if (object_) object_->release();
    }
    Ptr& operator=(Ptr other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    T* get() const { return object_; }
    T* operator->() const { return object_; }
    T& operator*() const { return *object_; }
    explicit operator bool() const { return object_ != nullptr; }
    template <class U>
    bool operator==(const Ptr<U>& other) const {
        return object_ == other.get();
    }
    bool operator==(std::nullptr_t) const { return object_ == nullptr; }

 private:
    T* object_ = nullptr;
};

// Holds an object that is counted; null for one that is not, such as one on the stack.
template <class T>
Ptr<T> heldWhileCounted(T* object) {
    return object->references() > 0 ? Ptr<T>(object) : Ptr<T>();
}

template <class T, class... Args>
Ptr<T> makePtr(Args&&... args) {
    return Ptr<T>(new T(std::forward<Args>(args)...));
}

}  // namespace Quil
