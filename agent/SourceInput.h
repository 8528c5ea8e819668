// SourceInput: what one source claims: its host table, the objects that its hosts lead to, and the claims that come of
// them.
//
// A host that comes home wins: when a local dynamic row appears or moves while another source has the host elsewhere at
// sequence number s, its own becomes s + 1, unless it is higher already, until it moves again; that is what the output
// carries, for others to be told. Rows that the table held when it was mounted have not just appeared: theirs count as
// they are, or as they were raised before a restart of the agent.
//
// Threads   Event-loop thread.
#pragma once

#include <optional>
#include <unordered_map>

#include "L2Rib/HostInput.h"
#include "L2Rib/HostOutput.h"
#include "agent/Elect.h"
#include "agent/ObjectGraph.h"
#include "agent/Quota.h"
#include "agent/Raised.h"

namespace Agent {

struct InputTables {
    Quil::Ptr<L2Rib::HostInput> hosts;
    ObjectTables objects;
};

class SourceInput {
 public:
    using Key = Bridging::MacVlanPair;

    // kick is called when there is something to do.
    SourceInput(L2Rib::Source source, const InputTables& tables, const Policy& rules, ObjectOutputs& outputs,
                Raised& raised, const std::function<void()>& kick);

    // Looks at one object; false when there is none to look at.
    bool stepObjects() { return graph_.step(); }
    // Hands the next host that has changed to elect; false when there is none.
    template <class F>
    bool stepHosts(F&& elect) {
        return hosts_.stepChanged(elect);
    }
    // The hosts that the table held are walked through with those of other sources, in the order of the tables.
    Backlog<L2Rib::HostInput>& hosts() { return hosts_; }
    bool isSettled() const { return hosts_.isEmpty() && graph_.isSettled(); }
    // The host is to be looked at again.
    void mark(const Key& key) { hosts_.mark(key); }
    // The rules are other ones.
    void rulesChanged(const L2Rib::HostOutput& output);
    // Of a source that may have only so many hosts, those that the output has come first.
    void admitPublished(const L2Rib::HostOutput& output);

    bool isWhole() const { return isWhole_; }
    void isWholeIs(bool isWhole);

    bool hasRow(const Key& key) const;
    // The claim on the host; none when there is no row. What it leads to is brought up, and its place taken.
    std::optional<Candidate> claim(const Key& key);
    // The claim as it stands; changes nothing.
    std::optional<Candidate> peek(const Key& key) const;
    // The claim, a local dynamic one, while others stand at up to this sequence number (none: there are no others).
    void raise(Candidate& claim, std::optional<std::uint32_t> remoteSeqNo);
    // To what it was raised.
    void peekRaised(Candidate& claim) const;
    // There is no row any more, and the output does not carry it on.
    void forget(const Key& key);

    std::size_t numWaiting() const { return graph_.numWaitingHosts(); }
    std::size_t numRefused() const { return graph_.numRefused(); }
    std::size_t numOverQuota() const { return quota_.numWaiting(); }

 private:
    // Where a local dynamic host is, behind an interface or the CPU, and the sequence number that it took when it
    // appeared there.
    struct Stay {
        Lanx::IntfId intf;
        double since;
        L2Rib::DestType destType;
        std::uint32_t seqNo;
        bool isAt(const L2Rib::Host& host) const;
    };
    Candidate claimOf(L2Rib::Host host) const;
    static Stay stayOf(const L2Rib::Host& host);
    std::uint32_t seqNoOnArrival(const L2Rib::Host& host, std::optional<std::uint32_t> remoteSeqNo) const;
    void keep(L2Rib::Host host, std::uint32_t seqNo);

    const L2Rib::Source source_;
    const Policy& rules_;
    const Quil::Ptr<L2Rib::HostInput> table_;
    Raised& raised_;
    std::unordered_map<Key, Stay, L2Rib::HashOf<Key>> stays_;
    Quota quota_;
    bool isWhole_ = true;
    Backlog<L2Rib::HostInput> hosts_;
    ObjectGraph graph_;
};

}  // namespace Agent
