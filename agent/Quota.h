// Quota: which hosts of a source count when it may have only so many: those that came first. One that goes makes room
// for one that waits.
#pragma once

#include <optional>
#include <unordered_set>

#include "Bridging/MacVlanPair.h"
#include "L2Rib/Hash.h"

namespace Agent {

class Quota {
 public:
    using Key = Bridging::MacVlanPair;

    std::uint32_t limit() const { return limit_; }  // 0: none
    // Forgets who counted: all are to be admitted again.
    void limitIs(std::uint32_t limit) {
        limit_ = limit;
        admitted_.clear();
        waiting_.clear();
    }
    // Whether the host counts.
    bool admit(const Key& key) {
        if (limit_ == 0 || admitted_.contains(key)) return true;
        if (admitted_.size() >= limit_) return waiting_.insert(key), false;
        waiting_.erase(key);
        return admitted_.insert(key).second;
    }
    // The host is no more. Returns one that may count now.
    std::optional<Key> release(const Key& key) {
        if (limit_ == 0) return std::nullopt;
        waiting_.erase(key);
        if (admitted_.erase(key) == 0 || waiting_.empty()) return std::nullopt;
        return *waiting_.begin();
    }
    std::size_t numWaiting() const { return waiting_.size(); }

 private:
    using Keys = std::unordered_set<Key, L2Rib::HashOf<Key>>;
    std::uint32_t limit_ = 0;
    Keys admitted_, waiting_;
};

}  // namespace Agent
