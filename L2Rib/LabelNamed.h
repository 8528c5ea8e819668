// LabelNamed.h: the names that the operations of the label tables go by. See Table.h for what they do.
#pragma once

#include "L2Rib/ObjId.h"
#include "L2Rib/Table.h"

namespace L2Rib {

template <class Derived, class Record>
class LabelNamed : public Table<Derived, Record, LabelId> {
    using Base = Table<Derived, Record, LabelId>;

 public:
    using Key = LabelId;
    using typename Base::IteratorConst;
    using typename Base::Map;
    static constexpr const char* fwkCollection = "label";

    class NotifieeConst : public Base::NotifieeBase {
     public:
        // One entry appeared, changed or went.
        virtual void onLabel(const Key&) {}
        // The framework's hook: the whole collection may have changed. Unless it is overridden, onLabel() is told.
        virtual void onLabelCollectionImmediate() { onLabel(); }
        virtual void onLabel() {}

     private:
        void fwkOnKey(const Key& key) final { onLabel(key); }
        void fwkOnImmediateCollection() final { onLabelCollectionImmediate(); }
    };

    // Inserts or overwrites the entry of the record's key, and notifies.
    void labelIs(const Record& record) { this->recordIs(record); }
    // Publishes the record that was filled in place: labelControl().directWrite(key)->value().
    void labelCommit(const Record* record) { this->recordCommit(record); }
    // Removes an entry, notifies and returns it; without one, returns the default record.
    Record labelDel(const Key& key) { return this->recordDel(key); }
    Record labelDel(const IteratorConst& at) { return this->recordDel(at); }
    void labelDelAll() { this->recordDelAll(); }

    // The entry of the key, or the default record; the second form says whether there was one.
    Record label(const Key& key) const { return this->record(key); }
    bool label(const Key& key, Record& out) const { return this->record(key, out); }
    // All entries, in the table's order: for (const Record& r : table.labels()) ...
    typename Base::Range labels() const { return this->records(); }

    // The binding to the shared-memory map.
    Map& labelControl() const { return this->control(); }
    void labelNotify(const Key& key) { this->notifyKey(key); }
    void labelNotifyCollection() { this->notifyCollection(); }
    void labelNotifyMountStatus() { this->notifyMountStatus(); }

 protected:
    using Base::Base;
};

}  // namespace L2Rib
