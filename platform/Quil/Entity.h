// Entity.h: the base of everything that has a name, a place in the entity tree and watchers.
//
// Owner     Entities are counted (Ptr.h). A parent owns its children; the child's link to its parent is plain and is
//           cleared before the parent goes.
// Threads   Event-loop thread.
#pragma once

#include "Quil/Notifiee.h"
#include "Quil/Text.h"

namespace Quil {

class Type;
class Entity;

// Told of every change of an entity, whatever its type: for replication. What has changed it finds out itself.
class L2RIB_EXPORT EntityObserver {
 public:
    virtual ~EntityObserver();
    virtual void onEntityChanged(const Entity& entity) = 0;
};

class L2RIB_EXPORT Entity : public Counted {
 public:
    explicit Entity(Name name) : name_(std::move(name)) {}
    ~Entity() override;

    const Name& name() const { return name_; }
    Entity* parent() const { return parent_; }
    // The parent's attribute under which it is held ("vlanFloodSet"); empty without a parent.
    const char* parentAttribute() const { return parentAttribute_; }
    // The names from the root down, joined by "/"; the root's empty name does not show.
    String fullName() const;
    // Takes its place under a parent, or leaves the tree (null). Calls handleParent(); if that throws, nothing changed.
    void parentIs(Entity* parent, const char* attribute = "");
    // The framework's description of this type; see TypeRegistry.h.
    virtual const Type& fwkType() const;
    // Before the watchers of its type are told, one of which may throw.
    void fwkChanged() const {
        observers_.forEach([this](EntityObserver& observer) { observer.onEntityChanged(*this); });
    }
    NotifieeList<EntityObserver>& fwkObservers() const { return observers_; }

 protected:
    virtual void handleParent(Entity* parent);

    // Stores a scalar attribute and notifies when the value changes:
    //   void currentIs(U64 v) { setAndNotify(current_, v, notifiees_, &NotifieeConst::onCurrent); }
    template <class T, class N>
    void setAndNotify(T& field, const T& value, NotifieeList<N>& list, void (N::*onChange)()) {
        if (field == value) return;
        const auto keep = heldWhileCounted(this);  // a watcher may drop the last other reference
        field = value;
        fwkChanged();
        list.forEach([&](N& notifiee) { (notifiee.*onChange)(); });
    }

 private:
    const Name name_;
    Entity* parent_ = nullptr;
    const char* parentAttribute_ = "";
    mutable NotifieeList<EntityObserver> observers_;
};

}  // namespace Quil
