#include "Quil/Entity.h"

#include "Quil/TypeRegistry.h"

namespace Quil {

EntityObserver::~EntityObserver() = default;

Entity::~Entity() = default;

String Entity::fullName() const {
    const String above = parent_ ? parent_->fullName() : String();
    return above.empty() ? name_ : cat(above, "/", name_);
}

void Entity::parentIs(Entity* parent, const char* attribute) {
    if (parent == parent_) return;
    Entity* const before = std::exchange(parent_, parent);
    const char* const attributeBefore = std::exchange(parentAttribute_, attribute);
    try {
        handleParent(parent);
    } catch (...) {
        parent_ = before;
        parentAttribute_ = attributeBefore;
        throw;
    }
}

const Type& Entity::fwkType() const { return typeOf<Entity>(); }
void Entity::handleParent(Entity*) {}

}  // namespace Quil
