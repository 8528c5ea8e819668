// PolicySm: keeps the output host table equal to the election among the sources' input tables, and the output's objects
// to what the sources' hosts lead to.
//
// Changed keys are collected for each source and looked at in reviews, one object and one host of each source in turn,
// so that a flood of one never starves another; a review takes at most the quantum and goes on in the next turn of the
// loop.
//
// A host that comes home wins: when a local dynamic row appears or moves while another source has the host elsewhere at
// sequence number s, its own becomes s + 1, unless it is higher already, until it moves again; that is what the output
// carries, for others to be told. Rows that a table held when it was mounted have not just appeared: theirs count as
// they are.
//
// A withdrawal is one update of the output, never a deletion and an insertion; a result that equals the stored
// record byte for byte writes nothing. Objects that hosts still lead to are removed after the hosts have gone
// elsewhere.
//
// Threads   Event-loop thread; elections are made from the clock.
// Errors    What an output table throws holds up the source whose key it was for a second; then it is tried again.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "L2Rib/HostInput.h"
#include "L2Rib/HostOutput.h"
#include "Quil/Clock.h"
#include "agent/Elect.h"
#include "agent/ObjectGraph.h"

namespace Agent {

struct InputTables {
    Quil::Ptr<L2Rib::HostInput> hosts;
    ObjectTables objects;
};

class PolicySm : Quil::Clock::NotifieeConst {
 public:
    PolicySm(const Quil::Ptr<const Quil::Clock>& clock, Quil::Ptr<L2Rib::HostOutput> output, ObjectOutputs& objects);
    ~PolicySm() override;

    // Merges these tables from now on, what they hold already included; in place of earlier ones of the source.
    void sourceIs(L2Rib::Source source, const InputTables& tables);
    // Withdraws everything the source said.
    void sourceDel(L2Rib::Source source);
    // Whether the source's tables hold all it knows (the default). While they do not, because the source fills them
    // again or is away, the hosts it won stand as they are, should the table lack them; so do its objects.
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
    // Every eligible claim on the host, as the output would have it.
    std::vector<Candidate> candidates(const Bridging::MacVlanPair& key);
    // All is elected again.
    void policyIs(const Policy& policy);

 private:
    static constexpr Quil::Seconds retry = 1;

    // One source.
    class Input {
     public:
        Input(PolicySm& policy, L2Rib::Source source, const InputTables& tables);
        // Looks at one object and one host; false when there is none, or it was to no avail a moment ago.
        bool step();
        bool isSettled() const { return hosts_.isEmpty() && graph_.isSettled(); }
        bool isWhole() const { return isWhole_; }
        void isWholeIs(bool isWhole);
        // The source's claim on the host; none when there is no row, or it does not lead anywhere yet.
        std::optional<Candidate> claim(const Bridging::MacVlanPair& key);
        // Of a local dynamic claim while others stand at up to this sequence number (none: there are no others).
        void raise(Candidate& candidate, std::optional<std::uint32_t> remoteSeqNo);

     private:
        // Where a local dynamic host is, and the sequence number that it took when it appeared there.
        struct Stay {
            L2Rib::CiDest place;
            double since;
            std::uint32_t seqNo;
        };

        PolicySm& policy_;
        const L2Rib::Source source_;
        const Quil::Ptr<L2Rib::HostInput> table_;
        std::unordered_map<Bridging::MacVlanPair, Stay, L2Rib::HashOf<Bridging::MacVlanPair>> stays_;
        bool isWhole_ = true;
        Backlog<L2Rib::HostInput> hosts_;
        ObjectGraph graph_;
        Quil::Seconds retryAt_ = 0;
    };

    void onTime() override;
    void kick();
    bool step();
    bool sweepStep();
    void sweep(std::uint32_t sources);
    void elect(const Bridging::MacVlanPair& key);

    const Quil::Ptr<L2Rib::HostOutput> output_;
    ObjectOutputs& objects_;
    std::map<L2Rib::Source, std::unique_ptr<Input>> inputs_;
    std::uint32_t swept_ = 0;  // the sources whose hosts in the output are elected again
    L2Rib::HostOutput::IteratorConst sweep_;
    Policy rules_;
    bool enabled_ = true;
    Quil::Seconds quantum_ = 0.01;
};

}  // namespace Agent
