// PolicySm: keeps the output host table equal to the election among the sources' input tables, and the output's objects
// to what the sources' hosts lead to.
//
// Changed keys are collected for each source and looked at in reviews, one object and one host of each source in turn,
// so that a flood of one never starves another; a review takes at most the quantum and goes on in the next turn of the
// loop. What tables held when they were mounted is walked through jointly, in the order that all tables share, so that
// each host is elected once however many sources have it.
//
// A withdrawal is one update of the output, never a deletion and an insertion; a result that equals the stored
// record byte for byte writes nothing. Objects that hosts still lead to are removed after the hosts have gone
// elsewhere.
//
// A row whose source is away, or fills its tables again, stands while nobody else has the host: a remembered row never
// outvotes a present one. What stands in the table of such a source is present. A host that is frozen, as a duplicate,
// stays with the source that has it and at the place that it has, unless that leads nowhere any more or a static claim
// wins.
//
// Threads   Event-loop thread; elections are made from the clock.
// Errors    What an output table throws holds up the source whose key it was for a second; then it is tried again.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "L2Rib/HostOutput.h"
#include "Quil/Clock.h"
#include "agent/Mobility.h"
#include "agent/SourceInput.h"

namespace Agent {

class PolicySm : Quil::Clock::NotifieeConst {
 public:
    // raised: where the sequence numbers of hosts that came home are kept for the next process.
    PolicySm(const Quil::Ptr<const Quil::Clock>& clock, Quil::Ptr<L2Rib::HostOutput> output, ObjectOutputs& objects,
             Quil::Ptr<L2Rib::HostOutput> raised = L2Rib::hostOutputFactory("raised"));
    ~PolicySm() override;

    // Merges these tables from now on, what they hold already included; in place of earlier ones of the source.
    void sourceIs(L2Rib::Source source, const InputTables& tables);
    // Withdraws everything the source said.
    void sourceDel(L2Rib::Source source);
    // Whether the source's tables hold all it knows (the default). While they do not, because the source fills them
    // again or is away, the hosts it won stand as they are, should the table lack them; so do its objects.
    void isWholeIs(L2Rib::Source source, bool isWhole);
    // The output holds what an earlier process left: all of it is elected again; but what these sources have won stands
    // until they are here or this is called with the rest of them. Of sources that are only absent nothing stands, but
    // what is kept for them is.
    void takeOver(std::uint32_t awaitedSources, std::uint32_t absentSources = 0);
    void awaitedIs(std::uint32_t sources);
    std::uint32_t awaited() const { return awaited_; }
    std::uint32_t absent() const { return absent_; }  // the awaited ones among them
    // Those that are merged, and those that are absent.
    std::uint32_t sources() const;
    // While it is disabled the output stays as it is; changes are collected.
    void enabledIs(bool enabled);
    bool enabled() const { return enabled_; }

    // Elects all that is to be elected, now.
    void settle();
    bool isSettled() const;
    Quil::Seconds quantum() const { return quantum_; }
    void quantumIs(Quil::Seconds quantum) { quantum_ = quantum; }
    // All is elected again.
    void policyIs(const Policy& policy);

    // What there is to say about a host.
    struct Explanation {
        std::vector<Candidate> claims;  // the winner first; each wins against those behind it
        std::optional<L2Rib::HostAndSource> published;
    };
    // As it stands: asking changes nothing.
    Explanation explain(const Bridging::MacVlanPair& key) const;
    Mobility& mobility() { return mobility_; }
    const Mobility& mobility() const { return mobility_; }
    const SourceInput* input(L2Rib::Source source) const;  // null: none of it is merged
    template <class F>
    void forEachInput(F&& visit) const {
        for (const auto& [source, input] : inputs_) visit(source, *input);
    }

 private:
    static constexpr Quil::Seconds retry = 1;

    struct Input : SourceInput {
        using SourceInput::SourceInput;
        Quil::Seconds objectsRetryAt = 0, hostsRetryAt = 0;
    };

    void onTime() override;
    void kick();
    bool step();
    bool sweepStep();
    bool raisedStep();
    bool walkStep();
    bool isStillWalkedTo(const L2Rib::HostOutput::IteratorConst& at) const;
    bool isDue(const L2Rib::HostOutput::IteratorConst& at) const;
    void scheduleRetries();
    void sweep(std::uint32_t sources);
    bool stepOf(Input& input);
    template <class F>
    bool attempt(Quil::Seconds& retryAt, F&& run);
    void lookAgain(const Bridging::MacVlanPair& key);
    void reelect(const Bridging::MacVlanPair& key);
    void elect(const Bridging::MacVlanPair& key);
    void collectClaims(const Bridging::MacVlanPair& key, const L2Rib::HostAndSource* published);
    bool isRemembered(L2Rib::Source source) const;
    bool staysFrozen(const L2Rib::HostAndSource& published, const Candidate& winner) const;

    const Quil::Ptr<L2Rib::HostOutput> output_;
    ObjectOutputs& objects_;
    Raised raised_;
    std::map<L2Rib::Source, std::unique_ptr<Input>> inputs_;
    std::uint32_t swept_ = 0, nextSwept_ = 0;  // the sources whose hosts in the output are elected again, and then
    std::uint32_t awaited_ = 0;                // whose hosts stand, though they are not here
    std::uint32_t absent_ = 0;                 // that may still come back
    L2Rib::HostOutput::IteratorConst sweep_;
    Policy rules_;
    Mobility mobility_;
    Round<Bridging::MacVlanPair> again_;
    Quil::Seconds sweepRetryAt_ = 0, raisedRetryAt_ = 0, againRetryAt_ = 0, doomedRetryAt_ = 0;
    std::vector<Candidate> claims_;  // on the host at hand
    bool isReelecting_ = false;
    bool enabled_ = true;
    Quil::Seconds quantum_ = 0.01;
};

}  // namespace Agent
