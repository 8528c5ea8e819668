// AttrLogSource.h: shows a tree of entities to sinks in other processes.
//
// A sink is first sent everything: of each entity its scalars, in the order of declaration, then its collections; then
// that it is synchronised; then what changes. What it was sent is remembered, and what differs is sent when the socket
// takes it: a slow sink gets the latest value of each attribute, no queue of old ones, and the tree's owner never
// waits.
//
// Owner     The process whose tree it is; the tree outlives it by the counted pointer.
// Threads   Event-loop thread. Memory for each sink: the values it was sent, and a buffer of bounded size.
// Errors    SystemException when the socket cannot be made.
#pragma once

#include <list>
#include <memory>

#include "Quil/LocalListener.h"
#include "Quil/TypeRegistry.h"

namespace Quil {

class L2RIB_EXPORT AttrLogSource {
 public:
    // readOnly: sinks are shown the tree. writable: those of the same user, or of root, may also ask for scalars of the
    // root to be set (AttrLogSink::ask).
    enum Access { readOnly, writable };

    // Listens in the directory under this name; open to the owner and its group.
    AttrLogSource(EventLoop& loop, const String& directory, const String& name, Ptr<Entity> root,
                  Access access = readOnly);
    ~AttrLogSource();
    AttrLogSource(const AttrLogSource&) = delete;
    AttrLogSource& operator=(const AttrLogSource&) = delete;

    std::size_t numSinks() const { return peers_.size(); }

 private:
    class Peer;
    EventLoop& loop_;
    const Ptr<Entity> root_;
    const Access access_;
    std::list<std::unique_ptr<Peer>> peers_;
    const LocalListener listener_;
};

}  // namespace Quil
