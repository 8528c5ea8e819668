// Backlog: the keys of one input table that are to be looked at: those that changed, in turn, and, at first and when
// that is asked for, all that the table holds.
//
// Owner     Whoever merges the table.
// Threads   Event-loop thread.
#pragma once

#include <functional>

#include "Quil/Ptr.h"
#include "agent/Round.h"

namespace Agent {

template <class Table>
class Backlog : public Table::NotifieeBase {
 public:
    using Key = typename Table::Key;

    // kick is called when there is something to do.
    // The only one who follows the table.
    Backlog(const Quil::Ptr<Table>& table, std::function<void()> kick) : kick_(std::move(kick)) {
        this->notifierIs(table);
        table->presentIsKnown();
        walk_ = table->records().begin();
        isFirstWalk_ = bool(walk_);
    }

    bool isFirstWalk() const { return isFirstWalk_; }  // what the table held at first is not through yet
    bool isEmpty() const { return changed_.isEmpty() && !walk_; }
    void mark(const Key& key) {
        changed_.add(key);
        kick_();
    }
    // Calls handle(key) for the next one that changed; false when there is none. A key stays while its handling throws.
    template <class F>
    bool stepChanged(F&& handle) {
        return changed_.step(handle);
    }
    // The same, and where none has changed, of those that it held.
    template <class F>
    bool step(F&& handle) {
        if (stepChanged(handle)) return true;
        if (!walk_) return false;
        handle(walk_.key());
        walkOn();
        return true;
    }
    // For who walks several tables at a time: where the walk stands, while it goes on.
    const typename Table::IteratorConst& walk() const { return walk_; }
    void walkOn() {
        ++walk_;
        if (!walk_) isFirstWalk_ = false;
    }
    void walkAgain() {
        walk_ = this->notifier()->records().begin();
        kick_();
    }

 private:
    void fwkOnKey(const Key& key) override { mark(key); }
    void fwkOnImmediateCollection() override {}

    const std::function<void()> kick_;
    Round<Key> changed_;
    typename Table::IteratorConst walk_;
    bool isFirstWalk_ = false;
};

}  // namespace Agent
