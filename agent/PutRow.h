// PutRow.h: writes a row unless the table holds the same.
#pragma once

#include <cstring>
#include <type_traits>

namespace Agent {

template <class Table>
void putRow(Table& table, const typename Table::Record& row) {
    using Record = typename Table::Record;
    static_assert(std::is_trivially_copyable_v<Record>);
    Record before;
    // Bytes: two hosts that lead to the CPU must not be compared otherwise, and padding is always zero.
    const bool same = table.record(row.key(), before) && std::memcmp(&before, &row, sizeof row) == 0;
    if (!same) table.recordIs(row);
}

}  // namespace Agent
