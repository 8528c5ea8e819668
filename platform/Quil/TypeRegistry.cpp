#include "Quil/TypeRegistry.h"

namespace Quil {

const Attribute& Type::attribute(std::string_view attributeName) const {
    for (const Attribute& candidate : attributes) {
        if (candidate.name == attributeName) return candidate;
    }
    throw RangeException(cat(name, " has no attribute '", attributeName, "'"));
}

TypeRegistry& TypeRegistry::instance() {
    static TypeRegistry registry;
    return registry;
}

const Type& TypeRegistry::add(const Type& type) { return types_.try_emplace(type.name, type).first->second; }

const Type* TypeRegistry::find(const String& name) const {
    const auto found = types_.find(name);
    return found == types_.end() ? nullptr : &found->second;
}

std::vector<String> TypeRegistry::names() const {
    std::vector<String> names;
    for (const auto& entry : types_) names.push_back(entry.first);
    return names;
}

Ptr<Entity> TypeRegistry::create(const String& typeName, const std::vector<String>& arguments) const {
    const Type* type = find(typeName);
    if (!type || !type->create) throw RangeException(cat("no type '", typeName, "' that can be created by name"));
    return type->create(arguments);
}

}  // namespace Quil
