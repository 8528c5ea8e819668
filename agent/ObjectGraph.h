// ObjectGraph: the load-balance groups, labels and destinations of one source, and what they become in the output.
//
// Every object that the source has, or that something of it leads to, is a node with an output tuple, from its first
// mention until neither the object nor a reference to it is left. Objects and references may come in any order. A node
// resolves when it leads somewhere: a destination that is there; a label whose next resolves; a group with a member
// that does. What resolves has a row in the output, where members that do not are holes. A host is eligible when its
// next resolves.
//
// An object that leads back to itself is refused: it does not resolve until the circle is broken.
//
// Threads   Event-loop thread. Each step does a bounded amount of work, whatever the number of hosts behind an object.
#pragma once

#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

#include "Bridging/MacVlanPair.h"
#include "L2Rib/DestTable.h"
#include "L2Rib/HostWalks.h"
#include "L2Rib/LabelTable.h"
#include "L2Rib/LoadBalanceTable.h"
#include "agent/Backlog.h"
#include "agent/ObjectOutputs.h"

namespace Agent {

// Of a source; empty ones for a source that has hosts only.
struct ObjectTables {
    Quil::Ptr<L2Rib::LoadBalanceTable> loadBalances = L2Rib::loadBalanceTableFactory("lb");
    Quil::Ptr<L2Rib::LabelTable> labels = L2Rib::labelTableFactory("label");
    Quil::Ptr<L2Rib::DestTable> dests = L2Rib::destTableFactory("dest");
};

class ObjectGraph {
 public:
    using HostKey = Bridging::MacVlanPair;

    // onHost is told of each host whose next has come to resolve or ceased to, or leads to another lowest VTEP; kick,
    // that there is something to do.
    ObjectGraph(L2Rib::Source source, const ObjectTables& tables, ObjectOutputs& outputs,
                std::function<void(const HostKey&)> onHost, std::function<void()> kick);
    // Dooms all its rows.
    ~ObjectGraph();
    ObjectGraph(const ObjectGraph&) = delete;
    ObjectGraph& operator=(const ObjectGraph&) = delete;

    // The host leads to this object now (the empty tuple: to none). Returns the output tuple, the empty one when it
    // does not resolve.
    L2Rib::ObjTuple hostNextIs(const HostKey& host, const L2Rib::ObjTuple& next);
    // That of an object; the empty one when it does not resolve.
    L2Rib::ObjTuple outputOf(const L2Rib::ObjTuple& tuple) const;
    // The lowest VTEP that the object leads to; the empty address when there is none. onHost is told when it changes.
    Lanx::IpGenAddr lowestVtep(const L2Rib::ObjTuple& tuple) const;
    // While the source is filling its tables, objects that they lack stand.
    void isWholeIs(bool isWhole);
    bool step();  // false when there is nothing to do
    bool isSettled() const;
    std::size_t numRefused() const { return refused_.size(); }
    std::size_t numWaitingHosts() const;  // those whose next does not resolve

 private:
    struct Node : L2Rib::WalkedHosts {
        L2Rib::ObjTuple output;
        bool isPresent = false, isRefused = false, resolves = false;
        Lanx::IpGenAddr lowestVtep;         // while it resolves
        std::vector<L2Rib::ObjTuple> next;  // of a group, by position; of a label, one
        Lanx::MplsLabel label;
        L2Rib::Dest dest;
        std::set<L2Rib::ObjTuple> parents;
    };
    static constexpr int loadedAtOnce = 64;
    static constexpr std::size_t maxReach = 1024;  // objects behind one; more are refused as if they were a circle

    Node& nodeIs(const L2Rib::ObjTuple& tuple);
    const Node* node(const L2Rib::ObjTuple& tuple) const;
    void changed(const L2Rib::ObjTuple& tuple);
    bool readRow(const L2Rib::ObjTuple& tuple, Node& into) const;
    void load(const L2Rib::ObjTuple& tuple);
    void relink(const L2Rib::ObjTuple& tuple, const std::vector<L2Rib::ObjTuple>& before);
    bool loadStep();
    void loadNow();
    struct Reach {
        std::set<L2Rib::ObjTuple> behind;
        bool isCircular = false;
    };
    Reach reachOf(const L2Rib::ObjTuple& tuple) const;
    bool leadsSomewhere(const L2Rib::ObjTuple& tuple, const Node& node) const;
    Lanx::IpGenAddr lowestVtepBehind(const L2Rib::ObjTuple& tuple, const Node& node) const;
    void evaluate(const L2Rib::ObjTuple& tuple);
    void refusedIs(const L2Rib::ObjTuple& tuple, Node& node, bool isRefused);
    void write(const L2Rib::ObjTuple& tuple, const Node& node);
    void releaseIfUnused(const L2Rib::ObjTuple& tuple);

    const L2Rib::Source source_;
    const ObjectTables tables_;
    ObjectOutputs& outputs_;
    const std::function<void(const HostKey&)> onHost_;
    const std::function<void()> kick_;
    bool isWhole_ = true;
    std::map<L2Rib::ObjTuple, Node> nodes_;
    std::unordered_map<HostKey, L2Rib::ObjTuple, L2Rib::HashOf<HostKey>> hostNext_;
    Round<L2Rib::ObjTuple> toLoad_;  // nodes made by a reference
    Round<L2Rib::ObjTuple> toEvaluate_;
    Round<L2Rib::ObjTuple> toReview_;  // the same, for circles
    std::set<L2Rib::ObjTuple> refused_;
    L2Rib::HostWalks walks_;  // over the hosts of nodes that are to be seen otherwise
    Backlog<L2Rib::LoadBalanceTable> loadBalances_;
    Backlog<L2Rib::LabelTable> labels_;
    Backlog<L2Rib::DestTable> dests_;
};

}  // namespace Agent
