// RowSet: one table of a producer: writes what differs, and nothing else.
//
// Between a fill's begin and its end everything that is to stay is told again; what was not told is removed at the end.
// So a producer that starts over changes only the rows that differ, in a table that an earlier process left as well.
#pragma once

#include <set>

#include "Quil/Ptr.h"
#include "agent/PutRow.h"

namespace Producer {

template <class Table>
class RowSet {
 public:
    using Record = typename Table::Record;
    using Key = typename Table::Key;

    explicit RowSet(Quil::Ptr<Table> table) : table_(std::move(table)) {}
    const Quil::Ptr<Table>& table() const { return table_; }

    void put(const Record& record) {
        if (isFilling_) told_.insert(record.key());
        Agent::putRow(*table_, record);
    }
    void del(const Key& key) {
        told_.erase(key);
        table_->recordDel(key);
    }
    void fillBegins() {
        isFilling_ = true;
        told_.clear();
    }
    void fillEnds() {
        for (auto at = table_->records().begin(); isFilling_ && at; ++at) {
            if (!told_.contains(at.key())) table_->recordDel(at.key());
        }
        isFilling_ = false;
        told_.clear();
    }

 private:
    const Quil::Ptr<Table> table_;
    std::set<Key> told_;
    bool isFilling_ = false;
};

}  // namespace Producer
