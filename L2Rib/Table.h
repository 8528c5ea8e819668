// Table.h: the one pattern of the eight tables: an entity with one keyed collection, stored in a shared-memory map.
//
// Each table adds only the names of its operations (HostTable.h: hostIs, hostDel, onHost, ...).
//
// Notification  In the process that writes, the table calls its notifiees itself, synchronously, after each change. In
//               a process that reads, the map does so for every key that changed, from the event loop. A callback may
//               attach, detach, change, and drop the last reference to the table.
// Threads       Event-loop thread.
#pragma once

#include <compare>
#include <iterator>

#include "Memtab/Ops.h"
#include "Quil/Counter.h"
#include "Quil/TypeRegistry.h"
#include "QuilMemtab/QuilMemtabMap.h"
#include "Verro/Hash.h"

namespace L2Rib {

template <class Derived, class RecordType, class KeyType>
class Table : public Quil::Entity {
 public:
    using Record = RecordType;
    using Key = KeyType;
    using Wrapper = QuilMemtab::QuilMemtabMapValueWrapper<Record, Key, &Record::key>;
    using Map = QuilMemtab::QuilMemtabMap<Table, Wrapper, Key, Memtab::Ops<Key, Wrapper>>;

    // What a notifiee of a table answers; the named classes turn it into onHost(key) and the like.
    class NotifieeBase : public Quil::Notifiee<Derived, NotifieeBase> {
     public:
        virtual void fwkOnKey(const Key& key) = 0;
        virtual void fwkOnImmediateCollection() = 0;
    };

    // A walk over the table in its own order. It holds a copy of the entry it stands on, so it stays good whatever
    // happens to the table; next comes the entry behind that key, whether or not the key is still there.
    class IteratorConst {
     public:
        using iterator_category = std::input_iterator_tag;
        using value_type = Record;
        using difference_type = std::ptrdiff_t;
        using pointer = const Record*;
        using reference = const Record&;

        IteratorConst() = default;  // the end
        explicit IteratorConst(Map& map) : map_(&map), valid_(map.first(entry_, hint_)) {}
        explicit operator bool() const { return valid_; }
        Key key() const { return entry_.fwkKey(); }
        // Where it stands in the order that all tables of this key share; it ascends.
        std::pair<std::uint32_t, Key> position() const { return {Verro::Util::reverse(key().hash()), key()}; }
        const Record& operator*() const { return entry_.value(); }
        const Record* operator->() const { return &entry_.value(); }
        IteratorConst& operator++() {
            valid_ = valid_ && map_->next(key(), entry_, hint_);
            return *this;
        }
        void operator++(int) { ++*this; }
        friend bool operator==(const IteratorConst& a, const IteratorConst& b) {
            return a.valid_ == b.valid_ && (!a.valid_ || a.key() == b.key());
        }

     private:
        Map* map_ = nullptr;
        Wrapper entry_;
        typename Map::IterHint hint_;
        bool valid_ = false;
    };
    struct Range {
        Map& map;
        IteratorConst begin() const { return IteratorConst(map); }
        IteratorConst end() const { return {}; }
    };

    const Quil::Type& fwkType() const override { return Quil::typeOf<Derived>(); }
    Quil::NotifieeList<NotifieeBase>& fwkNotifiees() const { return notifiees_; }
    void fwkMount(const QuilMemtab::MountInfo& info, Quil::EventLoop& loop, const Quil::String& root,
                  const Quil::String& readerName) {
        map_.mount(info, {loop, root, readerName});
    }
    static void fwkDeclare(Quil::TypeBuilder<Derived>& type) {
        type.name(Derived::fwkTypeName)
            .template creator<Quil::String>([](const Quil::Name& n) { return Quil::makePtr<Derived>(n); })
            .attribute("name", [](const Derived& table) { return table.name(); })
            .attribute(Derived::fwkCollection, [](const Derived& table) { return table.contents(); })
            .attribute(Quil::cat(Derived::fwkCollection, "Control"),
                       [](const Derived& table) { return table.control().name(); });
    }

    // What hostIs(), hostDel(), host() and hosts() of the tables do, for code over any of them.
    void recordIs(const Record& record) {
        const auto keep = keepAlive();
        ++isCounter_;
        map_.safeWrite(Wrapper(record));
        notifyKey(record.key());
    }
    Record recordDel(const Key& key) {
        const auto keep = keepAlive();
        ++delCounter_;
        const Key removedKey = key;  // the caller's may lie in what is being removed
        if (!map_.safeRemove(removedKey, scratch_)) return Record();
        const Record removed = scratch_.value();  // a notifiee may delete another entry
        notifyKey(removedKey);
        return removed;
    }
    Record record(const Key& key) const {
        Wrapper found;
        map_.lookup(key, found);
        return found.value();
    }
    bool record(const Key& key, Record& out) const {
        Wrapper found;
        const bool present = map_.lookup(key, found);
        out = found.value();
        return present;
    }
    Range records() const { return {map_}; }
    // Who follows the table walks through what it holds now: of that it is not told, only of what changes after this.
    void presentIsKnown() const { map_.presentIsKnown(); }

 protected:
    explicit Table(Quil::Name name)
        : Entity(std::move(name)),
          isCounter_(Quil::cat(Derived::fwkCollection, "Is")),
          delCounter_(Quil::cat(Derived::fwkCollection, "Del")),
          notifyCounter_(Quil::cat(Derived::fwkCollection, "Notify")),
          map_(Memtab::SlotTable::Format{Record::fwkFields().typeName, Derived::fwkTypeName}) {
        map_.entity(Derived::fwkCollection, this, &Table::notifyKey, &Table::notifyCollection,
                    &Table::notifyMountStatus);
    }

    void handleParent(Quil::Entity*) override { map_.handleParent(); }

    void recordCommit(const Record* record) {
        const auto keep = keepAlive();
        ++isCounter_;
        const Key key = record->key();
        map_.directCommit();
        notifyKey(key);
    }
    Record recordDel(const IteratorConst& at) {
        ++delCounter_;  // and once more by the key: deletes through an iterator count twice
        return at ? recordDel(at.key()) : Record();
    }
    void recordDelAll() {
        const auto keep = keepAlive();
        for (IteratorConst at(map_); at; ++at) recordDel(at);
    }
    Map& control() const { return map_; }

    void notifyKey(const Key& key) {
        ++notifyCounter_;
        const Key changed = key;
        notifiees_.forEach([&](NotifieeBase& n) { n.fwkOnKey(changed); });
    }
    void notifyCollection() {
        notifiees_.forEach([](NotifieeBase& n) { n.fwkOnImmediateCollection(); });
    }
    void notifyMountStatus() {}

 private:
    // A notifiee may drop the last other reference to the table.
    Quil::Ptr<const Table> keepAlive() const { return Quil::heldWhileCounted(this); }

    Quil::RawText contents() const {  // "{key: value, ...}" for reflection
        Quil::String out = "{";
        for (const Record& r : records()) out += Quil::cat(out.size() > 1 ? ", " : "", r.key(), ": ", Quil::textOf(r));
        return {out + "}"};
    }

    Quil::Counter isCounter_;
    Quil::Counter delCounter_;
    Quil::Counter notifyCounter_;
    mutable Map map_;  // reading goes through its buffers
    Wrapper scratch_;
    mutable Quil::NotifieeList<NotifieeBase> notifiees_;
};

}  // namespace L2Rib
