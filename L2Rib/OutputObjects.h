// OutputObjects: the load-balance groups, labels and destinations of the output, for consumers that want to know where
// a host is reached that leads to one of them, and to be told when that changes.
//
//   L2Rib::OutputObjects objects(em, [&](const Bridging::MacVlanPair& key) { client.handleHost(key); });
//   objects.hostIs(key, record.host().next());
//   for (const L2Rib::Dest& dest : objects.dests(record.host().next())) ...
//
// Hosts are told of in steps of the clock, so that a change of an object with many hosts behind it does not hold up the
// loop.
//
// Owner     The consumer. The tables are the entity manager's, mounted there when the first one asks for them.
// Threads   Event-loop thread.
// Errors    What the tables lack, or what leads in a circle, leads nowhere.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <unordered_map>
#include <vector>

#include "Bridging/MacVlanPair.h"
#include "Corestore/EntityManager.h"
#include "L2Rib/DestOutput.h"
#include "L2Rib/Hash.h"
#include "L2Rib/HostWalks.h"
#include "L2Rib/LabelOutput.h"
#include "L2Rib/LoadBalanceOutput.h"

namespace L2Rib {

class L2RIB_EXPORT OutputObjects : Quil::Clock::NotifieeConst {
 public:
    using HostKey = Bridging::MacVlanPair;

    // onHost is called for each host that leads to an object that has changed.
    OutputObjects(Corestore::EntityManager& em, std::function<void(const HostKey&)> onHost = {});
    ~OutputObjects() override;

    bool isReadable() const;  // there are all three tables
    const Quil::Ptr<LoadBalanceOutput>& loadBalances() const { return loadBalances_; }
    const Quil::Ptr<LabelOutput>& labels() const { return labels_; }
    const Quil::Ptr<DestOutput>& dests() const { return dests_; }

    // What the object leads to next: of a group its members, the empty tuple for a hole.
    std::vector<ObjTuple> next(const ObjTuple& tuple) const;
    // All destinations that the object leads to, each once, in the order of the members.
    std::vector<Dest> dests(const ObjTuple& tuple) const;

    // The host leads to this object now; the empty tuple: to none.
    void hostIs(const HostKey& host, const ObjTuple& next);

 private:
    static constexpr Quil::Seconds quantum = 0.01;
    static constexpr std::size_t maxObjects = 1024;  // behind one

    template <class Output>
    struct Watcher;
    // An object that a host leads to, directly or not.
    struct Node : WalkedHosts {
        std::vector<ObjTuple> next;  // as last seen
        std::set<ObjTuple> parents;
    };

    void onTime() override;
    void changed(const ObjTuple& tuple);
    Node& nodeIs(const ObjTuple& tuple);
    void relink(const ObjTuple& tuple);
    void releaseIfUnused(const ObjTuple& tuple);

    const std::function<void(const HostKey&)> onHost_;
    const Quil::Ptr<LoadBalanceOutput> loadBalances_;
    const Quil::Ptr<LabelOutput> labels_;
    const Quil::Ptr<DestOutput> dests_;
    std::map<ObjTuple, Node> nodes_;
    std::unordered_map<HostKey, ObjTuple, HashOf<HostKey>> hostNext_;
    HostWalks walks_;
    std::unique_ptr<Watcher<LoadBalanceOutput>> lbWatcher_;
    std::unique_ptr<Watcher<LabelOutput>> labelWatcher_;
    std::unique_ptr<Watcher<DestOutput>> destWatcher_;
};

}  // namespace L2Rib
