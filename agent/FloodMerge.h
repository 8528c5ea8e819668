// FloodMerge: keeps the flood-set output equal to the union of the sources' flood sets.
//
// Destinations carry key 0 in the output, so that one VTEP from two sources is one member. The type is "all" if any
// source says so, else "any". The output's source is the mask of the sources that say anything.
//
// What the output holds before anything is merged is what an agent before this one published: it can be taken over as
// one more source, until all are back.
//
// Threads   Event-loop thread; VLANs that changed are merged from the clock, for at most the quantum a turn.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>

#include "L2Rib/FloodSetOutput.h"
#include "L2Rib/SourceDirEntry.h"
#include "Quil/Clock.h"

namespace Agent {

class FloodMerge : Quil::Clock::NotifieeConst {
 public:
    // onChange is called when the output may have changed.
    FloodMerge(
        const Quil::Ptr<const Quil::Clock>& clock, Quil::Ptr<L2Rib::FloodSetOutput> output,
        std::function<void()> onChange = [] {});
    ~FloodMerge() override;

    // What the output holds stands, until it is to go.
    void takeOver();
    void takenOverDel();

    // Merges the flood sets of this entry from now on.
    void sourceIs(const Quil::Ptr<L2Rib::SourceDirEntry>& entry);
    void sourceDel(const Quil::Name& name);
    // While a source does not say all it knows, what it said before counts.
    void isWholeIs(const Quil::Name& name, bool isWhole);
    // While it is disabled the output stays as it is.
    void enabledIs(bool enabled);
    // Merges all that is to be merged, now.
    void settle();

 private:
    static constexpr Quil::Seconds quantum = 0.01;

    struct Set {
        bool isAll = false;
        std::map<L2Rib::Dest, bool> dests;  // with key 0
        void add(const Set& other);
    };
    using Sets = std::map<Lanx::EthAddr, Set>;  // of one VLAN

    // Watchers of a source's tree, each of one level.
    struct Source;
    struct SetWatcher : L2Rib::FloodSet::NotifieeConst {
        Source& source;
        const Bridging::VlanId vlanId;
        SetWatcher(Source& s, Bridging::VlanId vlan) : source(s), vlanId(vlan) {}
        void onFloodSetType() override { source.changed(vlanId); }
        void onDestSet(const L2Rib::Dest&) override { source.changed(vlanId); }
    };
    struct VlanWatcher : L2Rib::VlanFloodSet::NotifieeConst {
        Source& source;
        const Bridging::VlanId vlanId;
        std::map<Lanx::EthAddr, SetWatcher> sets;
        VlanWatcher(Source& s, Bridging::VlanId vlan) : source(s), vlanId(vlan) {}
        void watch();
        void onFloodSet(const Lanx::EthAddr& mac) override;
    };
    struct Source : L2Rib::SourceDirEntry::NotifieeConst {
        FloodMerge& merge;
        std::map<Bridging::VlanId, VlanWatcher> vlans;
        std::map<Bridging::VlanId, Sets> said;  // as last merged
        bool isWhole = true;
        std::uint32_t takenOver = 0;  // the sources of what was taken over
        explicit Source(FloodMerge& m) : merge(m) {}
        void onVlanFloodSet(const Bridging::VlanId& vlanId) override;
        void changed(const Bridging::VlanId& vlanId) { merge.mark(vlanId); }
        void markAll();
        void take(const Bridging::VlanId& vlanId);
        void saidIs(const Bridging::VlanId& vlanId, Sets sets);
    };

    void onTime() override;
    void mark(const Bridging::VlanId& vlanId);
    void kick();
    void mergeVlan(const Bridging::VlanId& vlanId);
    void publish(const Bridging::VlanId& vlanId, const Sets& sets);
    void publishSources();
    static Sets setsOf(const L2Rib::VlanFloodSet& vlan);

    const Quil::Ptr<L2Rib::FloodSetOutput> output_;
    const std::function<void()> onChange_;
    std::map<Quil::Name, std::unique_ptr<Source>> sources_;
    std::set<Bridging::VlanId> changed_;
    bool enabled_ = true;
};

}  // namespace Agent
