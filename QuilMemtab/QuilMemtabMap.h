// QuilMemtabMap: joins a table entity to a map of the shared-memory engine: names the map after the entity's place in
// the tree, gives it private memory at once, follows the entity into and out of the tree, and forwards the engine's
// notifications to the entity.
//
// Owner     The table entity embeds the map; the map never owns the entity.
// Lifecycle constructed -> local (entity()) -> local under its full name (first parent) -> mounted -> detached (orphan)
#pragma once

#include "QuilMemtab/MountInfo.h"

namespace QuilMemtab {

// The slot value of a map: one record, flat, that yields its key.
template <class Value, class Key, auto keyMember>
class QuilMemtabMapValueWrapper {
 public:
    QuilMemtabMapValueWrapper() = default;
    explicit QuilMemtabMapValueWrapper(const Value& value) : value_(value) {}
    const Value& value() const { return value_; }
    Value& value() { return value_; }
    Quil::String str() const { return Quil::textOf(value_); }
    Key fwkKey() const { return (value_.*keyMember)(); }
    friend bool operator==(const QuilMemtabMapValueWrapper& a, const QuilMemtabMapValueWrapper& b) {
        return a.value_ == b.value_;
    }

 private:
    Value value_;
};

template <class Owner, class Value, class Key, class OpsType>
class QuilMemtabMap : public Memtab::MemtabMap<Key, Value, OpsType> {
    using Base = Memtab::MemtabMap<Key, Value, OpsType>;

 public:
    using Base::Base;
    ~QuilMemtabMap() override {
        if (this->debug().bit(0x04)) {
            this->debug().log(2, [] { return Quil::String("QuilMemtabMap::~QuilMemtabMap() deleting state"); });
        }
    }

    // Called once from the owner's constructor.
    void entity(const Quil::String& collection, Owner* owner, void (Owner::*notify)(const Key&),
                void (Owner::*notifyCollection)(), void (Owner::*notifyMountStatus)()) {
        owner_ = owner;
        collection_ = collection;
        this->debugIs(Quil::Trace::handler("MemtabTemp-" + collection));
        this->nameIs(Quil::cat(owner->name(), "/", collection));
        Memtab::Hooks<Key> hooks;
        hooks.onKey = [owner, notify](const Key& key) { (owner->*notify)(key); };
        hooks.onCollection = [owner, notifyCollection] { (owner->*notifyCollection)(); };
        hooks.onMountStatus = [owner, notifyMountStatus] { (owner->*notifyMountStatus)(); };
        hooks.keepAlive = [owner]() -> Quil::Ptr<const Quil::Counted> { return Quil::heldWhileCounted(owner); };
        this->hooksAre(std::move(hooks));
        state([&] { return Quil::cat("QuilMemtabMap::entity() creating local MemtabWriter ", this->name()); });
        this->createDefaultLocalWriter();
    }

    // The owner was given a parent, or lost it.
    void handleParent() {
        const Quil::String old = this->name();
        if (!owner_->parent()) {
            state([&] { return Quil::cat("QuilMemtabMap::handleParent(): ", old, " is now an orphan"); });
            this->controlDetach();
            return;
        }
        if (initialized_) {
            throw Verro::InvalidInitializeException(Quil::cat("Entity ", owner_->name(), " already initialized"));
        }
        initialized_ = true;
        const Quil::String full = Quil::cat(owner_->fullName(), "/", collection_);
        state([&] { return Quil::cat("QuilMemtabMap::handleParent(): old: ", old, " new: ", full); });
        this->nameIs(full);
        this->createDefaultLocalWriter();
    }

    using Base::mount;
    void mount(const MountInfo& info, const Memtab::MountPoint& point) {
        Base::mount(info.mode, info.options(collection_), point);
    }

    bool validateFiles(const Quil::String& path, unsigned flags) {
        state([] { return Quil::String("QuilMemtabMap::validateFiles() delegating to MemtabMap::validateFiles"); });
        return Base::validateFiles(path, flags);
    }

 private:
    template <class Build>
    void state(Build&& build) const {
        if (this->debug().bit(0x20)) this->debug().log(5, std::forward<Build>(build));
    }
    Quil::String collection_;
    Owner* owner_ = nullptr;
    bool initialized_ = false;  // never cleared: a table is given a parent once
};

}  // namespace QuilMemtab
