// LoadBalanceNamed.h: the names that the operations of the lb tables go by. See Table.h for what they do.
#pragma once

#include "L2Rib/ObjId.h"
#include "L2Rib/Table.h"

namespace L2Rib {

template <class Derived, class Record>
class LoadBalanceNamed : public Table<Derived, Record, LoadBalanceId> {
    using Base = Table<Derived, Record, LoadBalanceId>;

 public:
    using Key = LoadBalanceId;
    using typename Base::IteratorConst;
    using typename Base::Map;
    static constexpr const char* fwkCollection = "lb";

    class NotifieeConst : public Base::NotifieeBase {
     public:
        // One entry appeared, changed or went.
        virtual void onLb(const Key&) {}
        // The framework's hook: the whole collection may have changed. Unless it is overridden, onLb() is told.
        virtual void onLbCollectionImmediate() { onLb(); }
        virtual void onLb() {}

     private:
        void fwkOnKey(const Key& key) final { onLb(key); }
        void fwkOnImmediateCollection() final { onLbCollectionImmediate(); }
    };

    // Inserts or overwrites the entry of the record's key, and notifies.
    void lbIs(const Record& record) { this->recordIs(record); }
    // Publishes the record that was filled in place: lbControl().directWrite(key)->value().
    void lbCommit(const Record* record) { this->recordCommit(record); }
    // Removes an entry, notifies and returns it; without one, returns the default record.
    Record lbDel(const Key& key) { return this->recordDel(key); }
    Record lbDel(const IteratorConst& at) { return this->recordDel(at); }
    void lbDelAll() { this->recordDelAll(); }

    // The entry of the key, or the default record; the second form says whether there was one.
    Record lb(const Key& key) const { return this->record(key); }
    bool lb(const Key& key, Record& out) const { return this->record(key, out); }
    // All entries, in the table's order: for (const Record& r : table.lbs()) ...
    typename Base::Range lbs() const { return this->records(); }

    // The binding to the shared-memory map.
    Map& lbControl() const { return this->control(); }
    void lbNotify(const Key& key) { this->notifyKey(key); }
    void lbNotifyCollection() { this->notifyCollection(); }
    void lbNotifyMountStatus() { this->notifyMountStatus(); }

 protected:
    using Base::Base;
};

}  // namespace L2Rib
