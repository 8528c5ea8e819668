// PodArray.h: an array of fixed capacity, stored inline: a 32-bit count and N slots, so that a record stays flat.
//
// Removal may leave holes inside the array, never at its end; what is set stands as it was given. Slots beyond the
// count may hold old bytes; nothing looks at them. A record read from shared memory may carry any count: walking past N
// raises the index type's range exception.
#pragma once

#include <cstdint>
#include <cstring>

#include "Quil/AttrLog.h"
#include "Quil/Value.h"

namespace Quilo {

// Raises "PodArray::set expected size <= N, instead got count ..." with a hexadecimal dump of the source.
[[noreturn]] L2RIB_EXPORT void throwInvalidSize(std::size_t capacity, std::size_t count, const void* source,
                                                std::size_t sourceSize);

template <class T, class Index, std::uint32_t N>
class PodArray {
 public:
    static constexpr std::uint32_t capacity = N;

    std::uint32_t count() const { return count_; }
    bool empty() const { return count_ == 0; }

    // The element at an index below N; the empty element at or beyond the count.
    T member(std::uint32_t index) const {
        Index::fwkCheck(index);
        return index < count_ ? slots_[index] : T();
    }
    T operator[](Index index) const { return member(index.value()); }

    // Sets one element. An index at or beyond the count raises the count; the slots between become empty.
    void memberIs(std::uint32_t index, const T& value) {
        Index::fwkCheck(index);
        for (; count_ <= index; ++count_) slots_[count_] = T();
        slots_[index] = value;
    }

    // Copies count elements as they are.
    void set(std::uint32_t count, const T* source) {
        if (count > N) throwInvalidSize(N, count, source, count * sizeof(T));
        for (std::uint32_t i = 0; i < count; ++i) slots_[i] = source[i];
        count_ = count;
    }

    // Removes the element and returns it. The last one takes every empty element before it along; any other leaves a
    // hole.
    T _memberDel(std::uint32_t index) {
        if (index >= count_) return T();
        Index::fwkCheck(index);
        const T removed = slots_[index];
        slots_[index] = T();
        if (index == count_ - 1) {
            while (count_ > 0 && slots_[count_ - 1] == T()) --count_;
        }
        return removed;
    }

    void memberDelAll() {
        checkCount();
        count_ = 0;
    }

    // Raises the range exception when the count leaves the capacity.
    void checkCount() const {
        if (count_ > 0) Index::fwkCheck(count_ - 1);
    }

    // Calls visit(index, element) for the filled part, holes included.
    template <class F>
    void forEach(F&& visit) const {
        for (std::uint32_t i = 0; i < count_; ++i) visit(i, member(i));
    }

    friend bool operator==(const PodArray& a, const PodArray& b) {
        if (a.count_ != b.count_) return false;
        for (std::uint32_t i = 0; i < a.count_; ++i) {
            if (!(a.member(i) == b.member(i))) return false;
        }
        return true;
    }
    // Fewer elements first, then the elements in index order.
    friend bool operator<(const PodArray& a, const PodArray& b) {
        if (a.count_ != b.count_) return a.count_ < b.count_;
        for (std::uint32_t i = 0; i < a.count_; ++i) {
            if (!(a.member(i) == b.member(i))) return a.member(i) < b.member(i);
        }
        return false;
    }

    void fwkAppendStrep(Quil::String& out) const {  // "{0: a, 1: b}"
        out += '{';
        forEach([&](std::uint32_t i, const T& element) {
            out += Quil::cat(i == 0 ? "" : ", ", i, ": ");
            Quil::appendStrep(out, element);
        });
        out += '}';
    }
    void fwkWrite(Quil::AttrLogWriter& log) const {
        checkCount();
        log.write(count_);
        forEach([&](std::uint32_t, const T& element) { log.write(element); });
    }
    void fwkRead(Quil::AttrLogReader& log) {
        PodArray read;
        read.count_ = log.get<std::uint32_t>();
        read.checkCount();
        for (std::uint32_t i = 0; i < read.count_; ++i) log.read(read.slots_[i]);
        *this = read;
    }

 private:
    std::uint32_t count_ = 0;
    T slots_[N]{};
};

}  // namespace Quilo
