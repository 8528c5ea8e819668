#include "agent/PolicySm.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "Quil/Trace.h"
#include "agent/PutRow.h"

namespace Agent {
namespace {

Quil::Trace& trace() {
    static Quil::Trace& handle = Quil::Trace::handler("Agent");
    return handle;
}

}  // namespace

PolicySm::PolicySm(const Quil::Ptr<const Quil::Clock>& clock, Quil::Ptr<L2Rib::HostOutput> output,
                   ObjectOutputs& objects)
    : NotifieeConst(clock), output_(std::move(output)), objects_(objects) {}

PolicySm::~PolicySm() = default;

void PolicySm::sourceIs(L2Rib::Source source, const InputTables& tables) {
    const bool replaces = inputs_.erase(source) > 0;
    inputs_[source] = std::make_unique<Input>(*this, source, tables);
    if (replaces) sweep(source);
    kick();
}

void PolicySm::sourceDel(L2Rib::Source source) {
    if (inputs_.erase(source) > 0) sweep(source);
}

void PolicySm::isWholeIs(L2Rib::Source source, bool isWhole) {
    const auto input = inputs_.find(source);
    if (input == inputs_.end() || input->second->isWhole() == isWhole) return;
    input->second->isWholeIs(isWhole);
    if (isWhole) sweep(source);
}

void PolicySm::enabledIs(bool enabled) {
    enabled_ = enabled;
    kick();
}

// Only where a source has won can the output change when its table is gone or whole again.
void PolicySm::sweep(std::uint32_t sources) {
    swept_ |= sources;
    sweep_ = output_->hosts().begin();
    kick();
}

void PolicySm::kick() {
    if (enabled_ && wakeupTime() > clock().now()) wakeupTimeIs(clock().now());
}

void PolicySm::onTime() {
    if (!enabled_) return;
    const Quil::Seconds end = clock().now() + quantum_;
    try {
        while (step()) {
            if (clock().now() >= end) return wakeupTimeIs(clock().now());
        }
    } catch (const Quil::Exception& error) {
        trace().log(1, [&] { return Quil::cat("the merge is interrupted: ", error.what()); });
        wakeupTimeIs(clock().now() + retry);
    }
}

void PolicySm::settle() {
    while (enabled_ && step()) {
    }
}

bool PolicySm::isSettled() const {
    return !sweep_ && !objects_.hasDoomed() &&
           std::all_of(inputs_.begin(), inputs_.end(), [](const auto& input) { return input.second->isSettled(); });
}

bool PolicySm::step() {
    bool any = sweepStep();
    for (const auto& [source, input] : inputs_) any = input->step() || any;
    return any || objects_.removeDoomed();
}

bool PolicySm::sweepStep() {
    if (!sweep_) return false;
    if (sweep_->source() & swept_) elect(sweep_.key());
    ++sweep_;
    if (!sweep_) swept_ = 0;
    return true;
}

PolicySm::Input::Input(PolicySm& policy, L2Rib::Source source, const InputTables& tables)
    : policy_(policy),
      source_(source),
      table_(tables.hosts),
      hosts_(tables.hosts, [&policy] { policy.kick(); }),
      graph_(
          source, tables.objects, policy.objects_, [this](const auto& key) { hosts_.mark(key); },
          [&policy] { policy.kick(); }) {}

void PolicySm::Input::isWholeIs(bool isWhole) {
    isWhole_ = isWhole;
    graph_.isWholeIs(isWhole);
}

bool PolicySm::Input::step() {
    if (policy_.clock().now() < retryAt_) return false;
    try {
        const bool any = graph_.step();
        return hosts_.step([this](const auto& key) { policy_.elect(key); }) || any;
    } catch (const Quil::Exception& error) {
        trace().log(1, [&] { return Quil::cat("the merge of ", source_, " is held up: ", error.what()); });
        retryAt_ = policy_.clock().now() + retry;
        if (policy_.wakeupTime() > retryAt_) policy_.wakeupTimeIs(retryAt_);
        return false;
    }
}

std::optional<Candidate> PolicySm::Input::claim(const Bridging::MacVlanPair& key) {
    L2Rib::Host host;
    if (table_->host(key, host)) {
        const L2Rib::ObjTuple next = host.next();
        host.nextIs(graph_.hostNextIs(key, next));
        const bool leadsSomewhere = next == L2Rib::ObjTuple() || !(host.next() == L2Rib::ObjTuple());
        if (!leadsSomewhere) return std::nullopt;
        return candidateOf(source_, host, policy_.rules_, graph_.lowestVtep(next));
    }
    L2Rib::HostAndSource published;
    if (!isWhole_ && policy_.output_->host(key, published) && published.source() == source_) {
        const L2Rib::ObjTuple& next = published.host().next();
        const auto own = policy_.objects_.manager(next.tableType()).outputToInput(next).objTuple();
        return candidateOf(source_, published.host(), policy_.rules_, graph_.lowestVtep(own));
    }
    graph_.hostNextIs(key, {});
    stays_.erase(key);
    return std::nullopt;
}

void PolicySm::Input::raise(Candidate& candidate, std::optional<std::uint32_t> remoteSeqNo) {
    L2Rib::Host& host = candidate.host;
    const auto [at, isNew] = stays_.try_emplace(host.key());
    Stay& stay = at->second;
    const double since = std::isnan(host.lastMoveTime()) ? 0.0 : host.lastMoveTime();
    const bool isThere =
        !isNew && stay.since == since && std::memcmp(&stay.place, &host.ciDest(), sizeof stay.place) == 0;
    if (!isThere) {
        const std::uint32_t own = host.seqNo().value();
        const bool hasAppeared = remoteSeqNo && !hosts_.isWalking() && *remoteSeqNo != 0xffffffffu;
        stay = {host.ciDest(), since, hasAppeared ? std::max(own, *remoteSeqNo + 1) : own};
    }
    host.seqNoIs(Keel::Seqno32(std::max(stay.seqNo, host.seqNo().value())));
}

std::vector<Candidate> PolicySm::candidates(const Bridging::MacVlanPair& key) {
    std::vector<Candidate> found;
    std::optional<std::uint32_t> remoteSeqNo;
    for (const auto& [source, input] : inputs_) {
        auto claim = input->claim(key);
        if (!claim) continue;
        const bool isRemote = !isLocal(claim->host) && !isStatic(claim->host.entryType());
        if (isRemote) remoteSeqNo = std::max(remoteSeqNo.value_or(0), claim->host.seqNo().value());
        found.push_back(*claim);
    }
    for (Candidate& candidate : found) {
        const bool isLocalDynamic = isLocal(candidate.host) && !isStatic(candidate.host.entryType());
        if (isLocalDynamic) inputs_.at(candidate.source)->raise(candidate, remoteSeqNo);
    }
    return found;
}

void PolicySm::policyIs(const Policy& policy) {
    rules_ = policy;
    sweepAll();
}

void PolicySm::elect(const Bridging::MacVlanPair& key) {
    const std::vector<Candidate> claims = candidates(key);
    const Result result = Agent::elect(claims);
    L2Rib::HostAndSource before;
    const bool present = output_->host(key, before);
    if (!result.winner) {
        if (present) output_->hostDel(key);
        return;
    }
    L2Rib::HostAndSource after(key);
    after.hostIs(result.winner->host);
    after.sourceIs(result.winner->source);
    trace().log(8, [&] { return Quil::cat("host ", key, " goes to ", after.source(), " by ", stepName(result.step)); });
    putRow(*output_, after);
}

}  // namespace Agent
