// AttrLog.h: the wire form of values, as entities are replicated to other processes: network byte order, bool one
// byte, enumerations four, strings a 32-bit length and their bytes, composites their fields in declaration order.
// Types with a form of their own have fwkWrite() and fwkRead(). Reading a truncated log raises a range exception.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <vector>

#include "Quil/Exception.h"
#include "Quil/FieldList.h"
#include "Quil/Flat.h"

namespace Quil {

class AttrLogWriter {
 public:
    const std::vector<std::uint8_t>& bytes() const { return bytes_; }

    void writeBytes(const void* data, std::size_t size) {
        const auto* first = static_cast<const std::uint8_t*>(data);
        bytes_.insert(bytes_.end(), first, first + size);
    }
    template <class T>
    void write(const T& value);

 private:
    template <std::unsigned_integral T>
    void writeNumber(T value) {
        for (int shift = 8 * (sizeof(T) - 1); shift >= 0; shift -= 8) {
            bytes_.push_back(static_cast<std::uint8_t>(value >> shift));
        }
    }
    std::vector<std::uint8_t> bytes_;
};

class AttrLogReader {
 public:
    // The bytes must outlive the reader.
    AttrLogReader(const std::uint8_t* data, std::size_t size) : next_(data), left_(size) {}
    explicit AttrLogReader(const std::vector<std::uint8_t>& bytes) : AttrLogReader(bytes.data(), bytes.size()) {}
    bool atEnd() const { return left_ == 0; }
    // The value that the rest of the log is.
    template <class T>
    T getLast() {
        T value = get<T>();
        if (!atEnd()) throw RangeException(cat("attribute log has ", left_, " bytes too many"));
        return value;
    }

    void readBytes(void* data, std::size_t size) { std::memcpy(data, take(size), size); }
    template <class T>
    void read(T& value);
    template <class T>
    T get() {
        T value{};
        read(value);
        return value;
    }

 private:
    const std::uint8_t* take(std::size_t size) {
        if (size > left_) throw RangeException(cat("attribute log ends ", size - left_, " bytes too early"));
        left_ -= size;
        return std::exchange(next_, next_ + size);
    }
    template <std::unsigned_integral T>
    T readNumber() {
        const std::uint8_t* bytes = take(sizeof(T));
        T value = 0;
        for (std::size_t i = 0; i < sizeof(T); ++i)
            value = static_cast<T>(static_cast<std::uint64_t>(value) << 8 | bytes[i]);
        return value;
    }
    const std::uint8_t* next_;
    std::size_t left_;
};

template <class T>
void AttrLogWriter::write(const T& value) {
    if constexpr (requires { value.fwkWrite(*this); }) {
        value.fwkWrite(*this);
    } else if constexpr (Composite<T>) {
        forEachField<T>([&](const auto& f) { write(value.*f.member); });
    } else if constexpr (std::is_same_v<T, bool>) {
        writeNumber(static_cast<std::uint8_t>(value));
    } else if constexpr (std::is_enum_v<T>) {
        writeNumber(static_cast<std::uint32_t>(value));
    } else if constexpr (std::is_same_v<T, String>) {
        writeNumber(static_cast<std::uint32_t>(value.size()));
        writeBytes(value.data(), value.size());
    } else if constexpr (requires { typename T::Number; }) {
        write(static_cast<typename T::Number>(value));
    } else if constexpr (std::is_same_v<T, double>) {
        writeNumber(std::bit_cast<std::uint64_t>(value));
    } else {
        writeNumber(static_cast<std::make_unsigned_t<T>>(value));
    }
}

template <class T>
void AttrLogReader::read(T& value) {
    if constexpr (requires { value.fwkRead(*this); }) {
        value.fwkRead(*this);
    } else if constexpr (Composite<T>) {
        forEachField<T>([&](const auto& f) { atField(f.name, [&] { read(value.*f.member); }); });
    } else if constexpr (std::is_same_v<T, bool>) {
        value = readNumber<std::uint8_t>() != 0;
    } else if constexpr (std::is_enum_v<T>) {
        value = static_cast<T>(readNumber<std::uint32_t>());
    } else if constexpr (std::is_same_v<T, String>) {
        const auto size = readNumber<std::uint32_t>();
        const auto* text = take(size);
        value.assign(reinterpret_cast<const char*>(text), size);
    } else if constexpr (requires { typename T::Number; }) {
        value = get<typename T::Number>();
    } else if constexpr (std::is_same_v<T, double>) {
        value = std::bit_cast<double>(readNumber<std::uint64_t>());
    } else {
        value = static_cast<T>(readNumber<std::make_unsigned_t<T>>());
    }
}

}  // namespace Quil
