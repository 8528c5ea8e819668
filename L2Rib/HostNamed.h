// HostNamed.h: the names that the operations of the host tables go by. See Table.h for what they do.
#pragma once

#include "Bridging/MacVlanPair.h"
#include "L2Rib/Table.h"

namespace L2Rib {

template <class Derived, class Record>
class HostNamed : public Table<Derived, Record, Bridging::MacVlanPair> {
    using Base = Table<Derived, Record, Bridging::MacVlanPair>;

 public:
    using Key = Bridging::MacVlanPair;
    using typename Base::IteratorConst;
    using typename Base::Map;
    static constexpr const char* fwkCollection = "host";

    class NotifieeConst : public Base::NotifieeBase {
     public:
        // One entry appeared, changed or went.
        virtual void onHost(const Key&) {}
        // The framework's hook: the whole collection may have changed. Unless it is overridden, onHost() is told.
        virtual void onHostCollectionImmediate() { onHost(); }
        virtual void onHost() {}

     private:
        void fwkOnKey(const Key& key) final { onHost(key); }
        void fwkOnImmediateCollection() final { onHostCollectionImmediate(); }
    };

    // Inserts or overwrites the entry of the record's key, and notifies.
    void hostIs(const Record& record) { this->recordIs(record); }
    // Publishes the record that was filled in place: hostControl().directWrite(key)->value().
    void hostCommit(const Record* record) { this->recordCommit(record); }
    // Removes an entry, notifies and returns it; without one, returns the default record.
    Record hostDel(const Key& key) { return this->recordDel(key); }
    Record hostDel(const IteratorConst& at) { return this->recordDel(at); }
    void hostDelAll() { this->recordDelAll(); }

    // The entry of the key, or the default record; the second form says whether there was one.
    Record host(const Key& key) const { return this->record(key); }
    bool host(const Key& key, Record& out) const { return this->record(key, out); }
    // All entries, in the table's order: for (const Record& r : table.hosts()) ...
    typename Base::Range hosts() const { return this->records(); }

    // The binding to the shared-memory map.
    Map& hostControl() const { return this->control(); }
    void hostNotify(const Key& key) { this->notifyKey(key); }
    void hostNotifyCollection() { this->notifyCollection(); }
    void hostNotifyMountStatus() { this->notifyMountStatus(); }

 protected:
    using Base::Base;
};

}  // namespace L2Rib
