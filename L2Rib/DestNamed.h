// DestNamed.h: the names that the operations of the dest tables go by. See Table.h for what they do.
#pragma once

#include "L2Rib/ObjId.h"
#include "L2Rib/Table.h"

namespace L2Rib {

template <class Derived, class Record>
class DestNamed : public Table<Derived, Record, DestId> {
    using Base = Table<Derived, Record, DestId>;

 public:
    using Key = DestId;
    using typename Base::IteratorConst;
    using typename Base::Map;
    static constexpr const char* fwkCollection = "dest";

    class NotifieeConst : public Base::NotifieeBase {
     public:
        // One entry appeared, changed or went.
        virtual void onDest(const Key&) {}
        // The framework's hook: the whole collection may have changed. Unless it is overridden, onDest() is told.
        virtual void onDestCollectionImmediate() { onDest(); }
        virtual void onDest() {}

     private:
        void fwkOnKey(const Key& key) final { onDest(key); }
        void fwkOnImmediateCollection() final { onDestCollectionImmediate(); }
    };

    // Inserts or overwrites the entry of the record's key, and notifies.
    void destIs(const Record& record) { this->recordIs(record); }
    // Publishes the record that was filled in place: destControl().directWrite(key)->value().
    void destCommit(const Record* record) { this->recordCommit(record); }
    // Removes an entry, notifies and returns it; without one, returns the default record.
    Record destDel(const Key& key) { return this->recordDel(key); }
    Record destDel(const IteratorConst& at) { return this->recordDel(at); }
    void destDelAll() { this->recordDelAll(); }

    // The entry of the key, or the default record; the second form says whether there was one.
    Record dest(const Key& key) const { return this->record(key); }
    bool dest(const Key& key, Record& out) const { return this->record(key, out); }
    // All entries, in the table's order: for (const Record& r : table.dests()) ...
    typename Base::Range dests() const { return this->records(); }

    // The binding to the shared-memory map.
    Map& destControl() const { return this->control(); }
    void destNotify(const Key& key) { this->notifyKey(key); }
    void destNotifyCollection() { this->notifyCollection(); }
    void destNotifyMountStatus() { this->notifyMountStatus(); }

 protected:
    using Base::Base;
};

}  // namespace L2Rib
