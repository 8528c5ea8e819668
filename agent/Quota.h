// Quota: which hosts of a source count when it may have only so many: those that came first. One that goes makes room
// for one that waits.
#pragma once

#include <optional>
#include <unordered_set>
#include <vector>

#include "Bridging/MacVlanPair.h"
#include "L2Rib/Hash.h"

namespace Agent {

class Quota {
 public:
    using Key = Bridging::MacVlanPair;

    std::uint32_t limit() const { return limit_; }  // 0: none
    // Returns those that count now and did not, or the other way round; with a first limit, all are to be admitted.
    std::vector<Key> limitIs(std::uint32_t limit) {
        limit_ = limit;
        std::vector<Key> changed;
        if (limit == 0) {
            changed.assign(waiting_.begin(), waiting_.end());
            admitted_.clear();
            waiting_.clear();
        }
        while (admitted_.size() > limit_) changed.push_back(moveOne(admitted_, waiting_));
        while (admitted_.size() < limit_ && !waiting_.empty()) changed.push_back(moveOne(waiting_, admitted_));
        return changed;
    }
    // Whether the host counts.
    bool admit(const Key& key) {
        if (isAdmitted(key)) return true;
        if (admitted_.size() >= limit_) return waiting_.insert(key), false;
        waiting_.erase(key);
        return admitted_.insert(key).second;
    }
    bool isAdmitted(const Key& key) const { return limit_ == 0 || admitted_.contains(key); }
    // The host is no more. Returns one that counts in its place.
    std::optional<Key> release(const Key& key) {
        if (limit_ == 0) return std::nullopt;
        waiting_.erase(key);
        if (admitted_.erase(key) == 0 || waiting_.empty()) return std::nullopt;
        return moveOne(waiting_, admitted_);
    }
    std::size_t numWaiting() const { return waiting_.size(); }

 private:
    using Keys = std::unordered_set<Key, L2Rib::HashOf<Key>>;
    static Key moveOne(Keys& from, Keys& to) { return *to.insert(from.extract(from.begin())).position; }
    std::uint32_t limit_ = 0;
    Keys admitted_, waiting_;
};

}  // namespace Agent
