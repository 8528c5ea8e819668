// Children.h: a keyed collection of child entities that tells the owner's watchers of every child that comes or goes.
//
// Order     Coming: the child is in the collection, then it has its parent, then the watchers are told. Going: it is
//           out, its parent is cleared, the watchers are told, it is returned. A lookup inside a callback sees the new
//           state.
// Owner     The entity that embeds it. A child that is gone lives on while someone holds it.
#pragma once

#include "Quil/Collection.h"
#include "Quil/Exception.h"

namespace Quil {

// N is the owner's notifiee class, onKey its callback with the key that changed.
template <class Key, class Child, class N>
class Children {
 public:
    Children(Entity* owner, const char* attribute, NotifieeList<N>& notifiees, void (N::*onKey)(const Key&))
        : owner_(owner), children_(owner, attribute), notifiees_(notifiees), onKey_(onKey) {}

    // The existing child, silently, or a new one.
    Ptr<Child> is(const Key& key) {
        bool isNew = false;
        Ptr<Child> child = children_.childIs(key, [&] {
            isNew = true;
            return valid(makePtr<Child>(key));
        });
        if (isNew) notify(key);
        return child;
    }
    // Null when there is none.
    Ptr<Child> del(const Key& key) {
        const auto node = children_.childTake(key);
        if (node.empty()) return {};
        notify(node.key());  // the caller's may have lain in all()
        return node.mapped();
    }
    void delAll() {
        std::vector<Key> keys;  // of now: a watcher may add
        for (const auto& [key, child] : all()) keys.push_back(key);
        for (const Key& key : keys) del(key);
    }
    Ptr<Child> child(const Key& key) const { return children_.child(key); }
    // Ascending by key.
    const std::map<Key, Ptr<Child>>& all() const { return children_.children(); }

 private:
    static Ptr<Child> valid(Ptr<Child> child) {
        if (!child) throw AssertionException("null ValidPtr");
        return child;
    }
    void notify(const Key& key) {
        const auto keep = heldWhileCounted(owner_);  // a watcher may drop the last other reference
        owner_->fwkChanged();
        notifiees_.forEach([&](N& notifiee) { (notifiee.*onKey_)(key); });
    }
    Entity* const owner_;
    Collection<Key, Child> children_;
    NotifieeList<N>& notifiees_;
    void (N::*const onKey_)(const Key&);
};

}  // namespace Quil
