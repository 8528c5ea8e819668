// HostWalks.h: walks over the hosts that lead to objects, one host a step, so that an object with many hosts behind it
// does not hold up the loop.
#pragma once

#include <deque>
#include <map>
#include <set>

#include "Bridging/MacVlanPair.h"
#include "L2Rib/ObjTuple.h"

namespace L2Rib {

// The part of an object's node that walks need.
struct WalkedHosts {
    std::set<Bridging::MacVlanPair> hosts;
    bool isWalkQueued = false;  // and has not begun
};

class HostWalks {
 public:
    bool isEmpty() const { return walks_.empty(); }
    // A walk over the hosts of this node; one that waits already will do.
    void add(const ObjTuple& tuple, WalkedHosts& node) {
        if (node.hosts.empty() || std::exchange(node.isWalkQueued, true)) return;
        walks_.push_back({tuple, {}, false});
    }
    // Calls onHost for the next host; false when there is none. Nodes may go meanwhile.
    template <class Node, class F>
    bool step(std::map<ObjTuple, Node>& nodes, F&& onHost) {
        if (walks_.empty()) return false;
        Walk& walk = walks_.front();
        const auto at = nodes.find(walk.tuple);
        if (at != nodes.end()) {
            WalkedHosts& node = at->second;
            if (!walk.hasBegun) node.isWalkQueued = false;
            const auto next = walk.hasBegun ? node.hosts.upper_bound(walk.last) : node.hosts.begin();
            if (next != node.hosts.end()) {
                const Bridging::MacVlanPair host = walk.last = *next;
                walk.hasBegun = true;
                onHost(host);
                return true;
            }
        }
        walks_.pop_front();
        return true;
    }

 private:
    struct Walk {
        ObjTuple tuple;
        Bridging::MacVlanPair last;
        bool hasBegun = false;
    };
    std::deque<Walk> walks_;
};

}  // namespace L2Rib
