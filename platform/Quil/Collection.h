// Collection.h: a keyed collection of child entities.
//
// Owner     The collection holds its children; a child's parent link is set when it enters and cleared when it leaves.
#pragma once

#include <map>

#include "Quil/Entity.h"

namespace Quil {

template <class Key, class Child>
class Collection {
 public:
    // attribute: the owner's, under which the children are held; a literal.
    Collection(Entity* owner, const char* attribute) : owner_(owner), attribute_(attribute) {}
    ~Collection() {
        for (auto& [key, child] : children_) child->parentIs(nullptr);
    }
    Collection(const Collection&) = delete;
    Collection& operator=(const Collection&) = delete;

    // The existing child, silently, or the one that make() returns.
    template <class Make>
    Ptr<Child> childIs(const Key& key, Make&& make) {
        if (auto found = child(key)) return found;
        Ptr<Child> made = make();
        const auto place = children_.emplace(key, made).first;
        try {
            made->parentIs(owner_, attribute_);
        } catch (...) {
            children_.erase(place);
            throw;
        }
        return made;
    }
    Ptr<Child> child(const Key& key) const {
        const auto found = children_.find(key);
        return found == children_.end() ? Ptr<Child>() : found->second;
    }
    // Takes the child out, clears its parent and returns it with its key; an empty node when there is none.
    typename std::map<Key, Ptr<Child>>::node_type childTake(const Key& key) {
        auto node = children_.extract(key);
        if (!node.empty()) node.mapped()->parentIs(nullptr);
        return node;
    }
    // The same; null when there is none.
    Ptr<Child> childDel(const Key& key) {
        const auto node = childTake(key);
        return node.empty() ? Ptr<Child>() : node.mapped();
    }
    const std::map<Key, Ptr<Child>>& children() const { return children_; }

 private:
    Entity* const owner_;
    const char* const attribute_;
    std::map<Key, Ptr<Child>> children_;
};

}  // namespace Quil
