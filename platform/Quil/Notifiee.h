// Notifiee.h: those who watch an entity, and the list the entity keeps of them.
//
// Notifications are synchronous calls on the event-loop thread, after the change is visible. A callback may attach,
// detach and destroy notifiees (itself included), change the watched entity, and so cause nested notifications:
// who is attached during a round is called from the next round on, who is detached is not called any more. What a
// callback throws leaves the setter, and those behind it in the list are not called.
//
// A watched class offers:   NotifieeList<W::NotifieeConst>& fwkNotifiees() const;
// and its notifiee class is: struct NotifieeConst : Notifiee<W, NotifieeConst> { virtual void onX() {} ... };
#pragma once

#include <algorithm>
#include <vector>

#include "Quil/Ptr.h"

namespace Quil {

template <class N>
class NotifieeList {
 public:
    bool empty() const {
        return std::all_of(list_.begin(), list_.end(), [](N* n) { return n == nullptr; });
    }
    void attach(N* notifiee) { list_.push_back(notifiee); }
    void detach(N* notifiee) {
        const auto found = std::find(list_.begin(), list_.end(), notifiee);
        if (found == list_.end()) return;
        if (rounds_ > 0) {
            *found = nullptr;  // a round is walking the list: leave the place, sweep later
        } else {
            list_.erase(found);
        }
    }
    template <class F>
    void forEach(F&& call) {
        struct Round {  // counts nested rounds, sweeps after the outermost one, also when a callback throws
            NotifieeList& list;
            explicit Round(NotifieeList& l) : list(l) { ++list.rounds_; }
            ~Round() {
                if (--list.rounds_ == 0) std::erase(list.list_, nullptr);
            }
        } round(*this);
        const std::size_t end = list_.size();
        for (std::size_t i = 0; i < end; ++i) {
            if (N* notifiee = list_[i]) call(*notifiee);
        }
    }

 private:
    std::vector<N*> list_;
    int rounds_ = 0;
};

template <class Watched, class Derived>
class Notifiee {
 public:
    Notifiee() = default;
    Notifiee(const Notifiee&) = delete;
    Notifiee& operator=(const Notifiee&) = delete;
    virtual ~Notifiee() {
        if (self_) notifier_->fwkNotifiees().detach(self_);
    }

    const Ptr<const Watched>& notifier() const { return notifier_; }
    // Watches this entity from now on (null: none) and keeps it alive meanwhile.
    virtual void notifierIs(const Ptr<const Watched>& notifier) {
        const bool registered = self_ || !notifier_;
        isRegisteredNotifieeIs(false);
        notifier_ = notifier;
        isRegisteredNotifieeIs(registered);
    }
    // Enters or leaves the entity's list without letting go of the entity.
    bool isRegisteredNotifiee() const { return self_ != nullptr; }
    virtual void isRegisteredNotifieeIs(bool registered) {
        registered = registered && notifier_;
        if (registered == isRegisteredNotifiee()) return;
        if (registered) {
            self_ = static_cast<Derived*>(this);
            notifier_->fwkNotifiees().attach(self_);
        } else {
            notifier_->fwkNotifiees().detach(std::exchange(self_, nullptr));
        }
    }

 private:
    Ptr<const Watched> notifier_;
    Derived* self_ = nullptr;  // in the list; kept, since the destructor is no Derived any more
};

}  // namespace Quil
