// RowText.h: a row of a table as the hexadecimal text of its bytes, which are the same in every process.
#pragma once

#include <cstring>
#include <type_traits>

#include "common/JsonObject.h"

namespace Apps {

template <class Record>
Quil::String hexOf(const Record& record) {
    static_assert(std::is_trivially_copyable_v<Record>);
    unsigned char bytes[sizeof record];
    std::memcpy(bytes, &record, sizeof record);
    Quil::String text;
    for (const unsigned char byte : bytes) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

template <class Record>
Record rowOf(const Json& json) {
    static_assert(std::is_trivially_copyable_v<Record>);
    const auto text = json.get<Quil::String>();
    const auto digit = [](char c) { return c >= 'a' && c <= 'f' ? c - 'a' + 10 : c >= '0' && c <= '9' ? c - '0' : -1; };
    unsigned char bytes[sizeof(Record)];
    bool isGood = text.size() == 2 * sizeof bytes;
    for (std::size_t i = 0; isGood && i < sizeof bytes; ++i) {
        const int high = digit(text[2 * i]), low = digit(text[2 * i + 1]);
        isGood = high >= 0 && low >= 0;
        bytes[i] = static_cast<unsigned char>(high * 16 + low);
    }
    if (!isGood) throw Quil::RangeException("is no row");
    Record record;
    std::memcpy(static_cast<void*>(&record), bytes, sizeof record);
    return record;
}

}  // namespace Apps
