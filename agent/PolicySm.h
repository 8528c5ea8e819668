// PolicySm: keeps the output host table equal to the election among the sources' input tables.
//
// A change of one source re-elects its key at once: a withdrawal is one update of the output, never a deletion and an
// insertion. A result that equals the stored record byte for byte writes nothing.
//
// Threads   Event-loop thread.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "L2Rib/HostInput.h"
#include "L2Rib/HostOutput.h"
#include "agent/Elect.h"

namespace Agent {

class PolicySm {
 public:
    explicit PolicySm(Quil::Ptr<L2Rib::HostOutput> output) : output_(std::move(output)) {}

    // Merges this table from now on, what it holds already included. One table a source.
    void sourceIs(L2Rib::Source source, const Quil::Ptr<L2Rib::HostInput>& hosts);
    // Withdraws everything the source said.
    void sourceDel(L2Rib::Source source);
    // Every claim on the host, and what election says of them.
    std::vector<Candidate> candidates(const Bridging::MacVlanPair& key) const;

 private:
    class Reactor : public L2Rib::HostInput::NotifieeConst {
     public:
        Reactor(PolicySm& policy, const Quil::Ptr<L2Rib::HostInput>& hosts) : policy_(policy) { notifierIs(hosts); }
        void onHost(const Bridging::MacVlanPair& key) override { policy_.handleHost(key); }

     private:
        PolicySm& policy_;
    };
    void handleHost(const Bridging::MacVlanPair& key);

    const Quil::Ptr<L2Rib::HostOutput> output_;
    std::map<L2Rib::Source, std::unique_ptr<Reactor>> sources_;
};

}  // namespace Agent
