// PutRow.h: writes a row unless the table holds the same.
#pragma once

#include <cstring>
#include <type_traits>

namespace Agent {

// By bytes: two hosts that lead to the CPU must not be compared otherwise, and padding is always zero.
template <class Record>
bool isSameRow(const Record& a, const Record& b) {
    static_assert(std::is_trivially_copyable_v<Record>);
    return std::memcmp(&a, &b, sizeof a) == 0;
}

template <class Table>
void putRow(Table& table, const typename Table::Record& row) {
    typename Table::Record before;
    if (!table.record(row.key(), before) || !isSameRow(before, row)) table.recordIs(row);
}

}  // namespace Agent
