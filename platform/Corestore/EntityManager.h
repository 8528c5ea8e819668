// EntityManager.h: the root of a process's entity tree; gives entities their place and mounts tables there.
//
//   Corestore::EntityManager em(loop, "/dev/shm/l2rib");
//   em.mount("l2rib/output", output, L2Rib::TableInfo().hostOutputInfo(QuilMemtab::reader));
//
// Owner     The process; it outlives nothing that is mounted through it: tables leave the tree with it.
// Threads   Event-loop thread.
#pragma once

#include "Quil/Collection.h"
#include "Quil/EventLoop.h"

namespace Corestore {

// An inner node of the tree.
class L2RIB_EXPORT Dir : public Quil::Entity {
 public:
    explicit Dir(Quil::Name name) : Entity(std::move(name)), dirs_(this, "dir"), entities_(this, "entity") {}
    ~Dir() override;
    Quil::Ptr<Dir> dirIs(const Quil::Name& name);
    void entityIs(const Quil::Ptr<Quil::Entity>& entity);
    Quil::Ptr<Quil::Entity> entity(const Quil::Name& name) const { return entities_.child(name); }  // null: none
    Quil::Ptr<Quil::Entity> entityDel(const Quil::Name& name) { return entities_.childDel(name); }

 private:
    Quil::Collection<Quil::Name, Dir> dirs_;
    Quil::Collection<Quil::Name, Quil::Entity> entities_;
};

class L2RIB_EXPORT EntityManager : public Quil::Counted {
 public:
    // readerName is how writers list this process among their readers; empty: the program's name.
    EntityManager(Quil::EventLoop& loop, Quil::String root, Quil::String readerName = {});
    ~EntityManager() override;

    Quil::EventLoop& loop() const { return loop_; }
    const Quil::String& root() const { return root_; }
    const Quil::String& readerName() const { return readerName_; }

    // The node of this path ("l2rib/output"), made where it is not there yet.
    Quil::Ptr<Dir> dirIs(const Quil::String& path);

    // Puts the entity under the path and mounts it. Throws what the mount throws.
    template <class E, class Info>
    void mount(const Quil::String& path, const Quil::Ptr<E>& entity, const Info& info) {
        const auto dir = dirIs(path);
        dir->entityIs(entity);
        try {
            entity->fwkMount(info, loop_, root_, readerName_);
        } catch (...) {
            dir->entityDel(entity->name());
            throw;
        }
    }
    // The entity of this name and kind that is there already, or else this one, mounted now.
    template <class E, class Info>
    Quil::Ptr<E> mountedIs(const Quil::String& path, const Quil::Ptr<E>& entity, const Info& info) {
        const auto there = dirIs(path)->entity(entity->name());
        if (auto* same = dynamic_cast<E*>(there.get())) return Quil::Ptr<E>(same);
        mount(path, entity, info);
        return entity;
    }
    // Takes the entity of this name out of the tree, which detaches it.
    void unmount(const Quil::String& path, const Quil::Name& name) { dirIs(path)->entityDel(name); }

 private:
    Quil::EventLoop& loop_;
    const Quil::String root_;
    const Quil::String readerName_;
    const Quil::Ptr<Dir> tree_;
};

}  // namespace Corestore
