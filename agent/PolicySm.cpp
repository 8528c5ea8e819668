#include "agent/PolicySm.h"

#include <cstring>

#include "Quil/Trace.h"

namespace Agent {

void PolicySm::sourceIs(L2Rib::Source source, const Quil::Ptr<L2Rib::HostInput>& hosts) {
    sourceDel(source);
    sources_[source] = std::make_unique<Reactor>(*this, hosts);
    for (const L2Rib::Host& host : hosts->hosts()) handleHost(host.key());
}

void PolicySm::sourceDel(L2Rib::Source source) {
    const auto node = sources_.extract(source);
    if (node.empty()) return;
    for (const L2Rib::Host& host : node.mapped()->notifier()->hosts()) handleHost(host.key());
}

std::vector<Candidate> PolicySm::candidates(const Bridging::MacVlanPair& key) const {
    std::vector<Candidate> found;
    Candidate candidate;
    for (const auto& [source, reactor] : sources_) {
        candidate.source = source;
        if (reactor->notifier()->host(key, candidate.host)) found.push_back(candidate);
    }
    return found;
}

void PolicySm::handleHost(const Bridging::MacVlanPair& key) {
    const std::vector<Candidate> claims = candidates(key);
    const Result result = elect(claims);
    L2Rib::HostAndSource before;
    const bool present = output_->host(key, before);
    if (!result.winner) {
        if (present) output_->hostDel(key);
        return;
    }
    L2Rib::HostAndSource after(key);
    after.hostIs(result.winner->host);
    after.sourceIs(result.winner->source);
    // Bytes, since comparing two hosts with a CPU destination would stop the process; padding is always zero.
    if (present && std::memcmp(&before, &after, sizeof after) == 0) return;
    static Quil::Trace& trace = Quil::Trace::handler("Agent");
    trace.log(8, [&] { return Quil::cat("host ", key, " goes to ", after.source(), " by ", stepName(result.step)); });
    output_->hostIs(after);
}

}  // namespace Agent
