#include "agent/PolicySm.h"

#include <algorithm>

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
    const bool any = graph_.step();
    return hosts_.step([this](const auto& key) { policy_.elect(key); }) || any;
}

bool PolicySm::Input::claim(const Bridging::MacVlanPair& key, L2Rib::Host& host) {
    if (table_->host(key, host)) {
        const L2Rib::ObjTuple next = host.next(), output = graph_.hostNextIs(key, next);
        host.nextIs(output);
        return next == L2Rib::ObjTuple() || !(output == L2Rib::ObjTuple());
    }
    L2Rib::HostAndSource published;
    if (!isWhole_ && policy_.output_->host(key, published) && published.source() == source_) {
        host = published.host();
        return true;
    }
    graph_.hostNextIs(key, {});
    return false;
}

std::vector<Candidate> PolicySm::candidates(const Bridging::MacVlanPair& key) {
    std::vector<Candidate> found;
    Candidate candidate;
    for (const auto& [source, input] : inputs_) {
        candidate.source = source;
        if (input->claim(key, candidate.host)) found.push_back(candidate);
    }
    return found;
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
