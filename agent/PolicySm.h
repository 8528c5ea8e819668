// PolicySm: keeps the output host table equal to the election among the sources' input tables.
//
// Changed keys are collected for each source and elected in reviews, one key of each source in turn, so that a flood of
// one never starves another; a review takes at most the quantum and goes on in the next turn of the loop. A withdrawal
// is one update of the output, never a deletion and an insertion; a result that equals the stored record byte for byte
// writes nothing.
//
// Threads   Event-loop thread; elections are made from the clock.
// Errors    What the output table throws ends the review; its key stays, and is tried again a second later.
#pragma once

#include <map>
#include <memory>
#include <set>
#include <vector>

#include "L2Rib/HostInput.h"
#include "L2Rib/HostOutput.h"
#include "Quil/Clock.h"
#include "agent/Elect.h"

namespace Agent {

class PolicySm : Quil::Clock::NotifieeConst {
 public:
    PolicySm(const Quil::Ptr<const Quil::Clock>& clock, Quil::Ptr<L2Rib::HostOutput> output);
    ~PolicySm() override;

    // Merges this table from now on, what it holds already included; in place of an earlier one of the source.
    void sourceIs(L2Rib::Source source, const Quil::Ptr<L2Rib::HostInput>& hosts);
    // Withdraws everything the source said.
    void sourceDel(L2Rib::Source source);
    // Whether the source's table holds all it knows (the default). While it does not, because the source fills it again
    // or is away, the hosts it won stand as they are, should the table lack them.
    void isWholeIs(L2Rib::Source source, bool isWhole);
    // The output holds what an earlier process left: all of it is elected again.
    void sweepAll() { sweep(L2Rib::sourceAll); }
    // While it is disabled the output stays as it is; changes are collected.
    void enabledIs(bool enabled);
    bool enabled() const { return enabled_; }

    // Elects all that is to be elected, now.
    void settle();
    bool isSettled() const;
    Quil::Seconds quantum() const { return quantum_; }
    void quantumIs(Quil::Seconds quantum) { quantum_ = quantum; }
    // Every claim on the host.
    std::vector<Candidate> candidates(const Bridging::MacVlanPair& key) const;

 private:
    static constexpr Quil::Seconds retry = 1;

    // One source: its table, and the keys whose turn has not come.
    class Input : public L2Rib::HostInput::NotifieeConst {
     public:
        Input(PolicySm& policy, const Quil::Ptr<L2Rib::HostInput>& hosts)
            : policy_(policy), walk_(hosts->hosts().begin()) {
            notifierIs(hosts);
        }
        void onHost(const Bridging::MacVlanPair& key) override {
            changed_.insert(key);
            policy_.kick();
        }
        bool isSettled() const { return changed_.empty() && !walk_; }
        bool step();  // elects one key; false when there is none
        bool isWhole = true;

     private:
        PolicySm& policy_;
        std::set<Bridging::MacVlanPair> changed_;
        Bridging::MacVlanPair last_;            // of the changed keys; the next one is behind it
        L2Rib::HostInput::IteratorConst walk_;  // over what the table held at first
    };

    void onTime() override;
    void kick();
    bool step();
    bool sweepStep();
    void sweep(std::uint32_t sources);
    void elect(const Bridging::MacVlanPair& key);

    const Quil::Ptr<L2Rib::HostOutput> output_;
    std::map<L2Rib::Source, std::unique_ptr<Input>> inputs_;
    std::uint32_t swept_ = 0;  // the sources whose hosts in the output are elected again
    L2Rib::HostOutput::IteratorConst sweep_;
    bool enabled_ = true;
    Quil::Seconds quantum_ = 0.01;
};

}  // namespace Agent
