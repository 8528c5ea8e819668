// Mobility: remembers where hosts have moved, finds those that are in two places at once, and counts hosts that are
// claimed statically in one place and dynamically in another.
//
// A move is a change of the place that the output names for a host. Only hosts that have moved take memory; what is
// known of one goes with it, once it has been gone for the window of the detection.
//
// Duplicates follow RFC 7432, 15.1: the first move starts a timer of M seconds, and N moves before it expires make the
// host a duplicate. It is one until it has stood still for M seconds; or, where the policy freezes duplicates, until
// the recovery time has passed; or until the operator clears it.
//
// Threads   Event-loop thread. What is found is said through the trace "Mobility", at level 3, once per interval and
//           kind.
#pragma once

#include <functional>
#include <set>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "L2Rib/Hash.h"
#include "L2Rib/HostAndSource.h"
#include "agent/Digest.h"
#include "agent/Policy.h"

namespace Agent {

class Mobility : Quil::Clock::NotifieeConst {
 public:
    using Key = Bridging::MacVlanPair;
    static constexpr std::size_t maxKept = 8;  // moves of a host, the last ones

    struct Move {
        Quil::Seconds when;
        L2Rib::HostAndSource to;
    };
    struct History {
        L2Rib::HostAndSource before;  // the first of the moves that are kept; each goes on from the one before it
        std::vector<Move> last;
        L2Rib::Source firstSource = L2Rib::sourceNone;
        std::uint64_t moves = 0;
        Quil::Seconds windowBegan = 0;
        std::uint32_t movesInWindow = 0;
        bool isDuplicate = false, isFrozen = false, isGone = false;
        Quil::Seconds duplicateUntil = 0, goneUntil = 0;  // while it is one
        Quil::Seconds deadline = Quil::never;             // the first of these
    };

    // letGo is called for each host that is frozen no more.
    Mobility(const Quil::Ptr<const Quil::Clock>& clock, std::function<void(const Key&)> letGo);
    ~Mobility() override;

    void rulesAre(const DuplicateRules& rules);
    // The host's row is this now; before: the one it had, or null. hasMoved: it is the host that has moved, not a
    // source that came or went, or a rule that was changed; only that makes it a duplicate.
    void published(const L2Rib::HostAndSource* before, const L2Rib::HostAndSource& now, bool hasMoved = true);
    void gone(const Key& key);
    // Whether static and dynamic claims on the host lead to different places.
    void conflictIs(const Key& key, bool isConflict);
    // Duplicates no more. By the operator.
    bool clear(const Key& key);  // whether it was a duplicate
    void clearAll();

    const History* history(const Key& key) const;  // null: has not moved
    bool isFrozen(const Key& key) const;
    bool isConflict(const Key& key) const { return conflicts_.contains(key); }
    std::size_t numDuplicates() const { return numDuplicates_; }
    std::size_t numConflicts() const { return conflicts_.size(); }
    std::uint64_t conflictsSeen() const { return conflictsSeen_; }
    std::uint64_t movesSeen() const { return movesSeen_; }

 private:
    void onTime() override;
    void note(History& history, const Key& key, const L2Rib::HostAndSource& now, bool hasMoved);
    void detect(History& history, const Key& key);
    void release(History& history, const Key& key);
    void expire(const Key& key);
    void schedule(History& history, const Key& key);

    const std::function<void(const Key&)> letGo_;
    DuplicateRules rules_;
    std::unordered_map<Key, History, L2Rib::HashOf<Key>> histories_;
    std::unordered_set<Key, L2Rib::HashOf<Key>> conflicts_;
    std::set<std::pair<Quil::Seconds, Key>> deadlines_;
    std::size_t numDuplicates_ = 0;
    std::uint64_t conflictsSeen_ = 0, movesSeen_ = 0;
    Digest duplicatesSaid_, conflictsSaid_;
};

}  // namespace Agent
