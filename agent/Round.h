// Round: things to be done, each once, in turn: the next one is the first behind the last one, in order, so that one
// that cannot be done does not hold up the others.
#pragma once

#include <set>

namespace Agent {

template <class T>
class Round {
 public:
    bool isEmpty() const { return all_.empty(); }
    void add(const T& thing) { all_.insert(thing); }
    template <class Range>
    void addAll(const Range& things) {
        all_.insert(things.begin(), things.end());
    }
    // Calls run(thing) for the next one; false when there is none. It stays while that throws.
    template <class F>
    bool step(F&& run) {
        if (all_.empty()) return false;
        auto next = all_.upper_bound(last_);
        if (next == all_.end()) next = all_.begin();
        last_ = *next;
        const T thing = last_;
        all_.erase(next);  // before it runs: it may be added again meanwhile
        try {
            run(thing);
        } catch (...) {
            all_.insert(thing);
            throw;
        }
        return true;
    }

 private:
    std::set<T> all_;
    T last_{};
};

}  // namespace Agent
