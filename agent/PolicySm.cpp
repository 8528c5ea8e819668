#include "agent/PolicySm.h"

#include <cstring>

#include "Quil/Trace.h"

namespace Agent {
namespace {

Quil::Trace& trace() {
    static Quil::Trace& handle = Quil::Trace::handler("Agent");
    return handle;
}

}  // namespace

PolicySm::PolicySm(const Quil::Ptr<const Quil::Clock>& clock, Quil::Ptr<L2Rib::HostOutput> output)
    : NotifieeConst(clock), output_(std::move(output)) {}

PolicySm::~PolicySm() = default;

void PolicySm::sourceIs(L2Rib::Source source, const Quil::Ptr<L2Rib::HostInput>& hosts) {
    const bool replaces = inputs_.contains(source);
    inputs_[source] = std::make_unique<Input>(*this, hosts);
    if (replaces) sweep(source);
    kick();
}

void PolicySm::sourceDel(L2Rib::Source source) {
    if (inputs_.erase(source) > 0) sweep(source);
}

void PolicySm::isWholeIs(L2Rib::Source source, bool isWhole) {
    const auto input = inputs_.find(source);
    if (input == inputs_.end() || input->second->isWhole == isWhole) return;
    input->second->isWhole = isWhole;
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
    return !sweep_ &&
           std::all_of(inputs_.begin(), inputs_.end(), [](const auto& input) { return input.second->isSettled(); });
}

bool PolicySm::step() {
    bool any = sweepStep();
    for (const auto& [source, input] : inputs_) any = input->step() || any;
    return any;
}

bool PolicySm::sweepStep() {
    if (!sweep_) return false;
    if (sweep_->source() & swept_) elect(sweep_.key());
    ++sweep_;
    if (!sweep_) swept_ = 0;
    return true;
}

bool PolicySm::Input::step() {
    if (!changed_.empty()) {
        auto next = changed_.upper_bound(last_);
        if (next == changed_.end()) next = changed_.begin();
        last_ = *next;
        policy_.elect(last_);
        changed_.erase(last_);
        return true;
    }
    if (!walk_) return false;
    policy_.elect(walk_.key());
    ++walk_;
    return true;
}

std::vector<Candidate> PolicySm::candidates(const Bridging::MacVlanPair& key) const {
    std::vector<Candidate> found;
    Candidate candidate;
    L2Rib::HostAndSource published;
    for (const auto& [source, input] : inputs_) {
        candidate.source = source;
        if (input->notifier()->host(key, candidate.host)) {
            found.push_back(candidate);
        } else if (!input->isWhole && output_->host(key, published) && published.source() == source) {
            candidate.host = published.host();
            found.push_back(candidate);
        }
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
    // Bytes, since comparing two hosts with a CPU destination would stop the process; padding is always zero.
    if (present && std::memcmp(&before, &after, sizeof after) == 0) return;
    trace().log(8, [&] { return Quil::cat("host ", key, " goes to ", after.source(), " by ", stepName(result.step)); });
    output_->hostIs(after);
}

}  // namespace Agent
