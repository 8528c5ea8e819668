#include "Corestore/EntityManager.h"

#include <cerrno>  // program_invocation_short_name

namespace Corestore {

Dir::~Dir() = default;

Quil::Ptr<Dir> Dir::dirIs(const Quil::Name& name) {
    return dirs_.childIs(name, [&] { return Quil::makePtr<Dir>(name); });
}

void Dir::entityIs(const Quil::Ptr<Quil::Entity>& entity) {
    const auto there = entities_.childIs(entity->name(), [&] { return entity; });
    if (!(there == entity)) {
        throw Quil::AssertionException(Quil::cat("another entity is mounted at ", there->fullName()));
    }
}

EntityManager::EntityManager(Quil::EventLoop& loop, Quil::String root, Quil::String readerName)
    : loop_(loop),
      root_(std::move(root)),
      readerName_(readerName.empty() ? Quil::String(program_invocation_short_name) : std::move(readerName)),
      tree_(Quil::makePtr<Dir>("")) {}

EntityManager::~EntityManager() = default;

Quil::Ptr<Dir> EntityManager::dirIs(const Quil::String& path) {
    Quil::Ptr<Dir> dir = tree_;
    for (std::size_t at = 0; at < path.size();) {
        const std::size_t slash = std::min(path.find('/', at), path.size());
        if (slash > at) dir = dir->dirIs(path.substr(at, slash - at));
        at = slash + 1;
    }
    return dir;
}

}  // namespace Corestore
