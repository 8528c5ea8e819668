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
                   ObjectOutputs& objects, Quil::Ptr<L2Rib::HostOutput> raised)
    : NotifieeConst(clock),
      output_(std::move(output)),
      objects_(objects),
      raised_(std::move(raised)),
      mobility_(clock, [this](const auto& key) { lookAgain(key); }) {}

PolicySm::~PolicySm() = default;

void PolicySm::sourceIs(L2Rib::Source source, const InputTables& tables) {
    const bool hasWonBefore = inputs_.erase(source) > 0 || (awaited_ & source) != 0;
    inputs_[source] = std::make_unique<Input>(source, tables, rules_, objects_, raised_, [this] { kick(); });
    inputs_[source]->admitPublished(*output_);
    awaited_ &= ~static_cast<std::uint32_t>(source);
    absent_ &= ~static_cast<std::uint32_t>(source);
    if (hasWonBefore) sweep(source);
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

void PolicySm::takeOver(std::uint32_t awaitedSources, std::uint32_t absentSources) {
    awaited_ = awaitedSources;
    absent_ = awaitedSources | absentSources;
    for (const auto& [source, input] : inputs_) {
        awaited_ &= ~static_cast<std::uint32_t>(source);
        absent_ &= ~static_cast<std::uint32_t>(source);
        input->admitPublished(*output_);
    }
    sweep(L2Rib::sourceAll);
}

void PolicySm::awaitedIs(std::uint32_t sources) {
    const std::uint32_t before = std::exchange(absent_, sources) | awaited_;
    awaited_ &= sources;
    if ((before & ~sources) != 0) sweep(before & ~sources);
}

std::uint32_t PolicySm::sources() const {
    std::uint32_t mask = absent_;
    for (const auto& [source, unused] : inputs_) mask |= source;
    return mask;
}

const SourceInput* PolicySm::input(L2Rib::Source source) const {
    const auto found = inputs_.find(source);
    return found == inputs_.end() ? nullptr : found->second.get();
}

void PolicySm::enabledIs(bool enabled) {
    enabled_ = enabled;
    kick();
}

// Where a source has won, and where it is in conflict, things change when its table is gone or whole again. A sweep
// under way goes on to its end first.
void PolicySm::sweep(std::uint32_t sources) {
    nextSwept_ |= sources;
    kick();
}

void PolicySm::kick() {
    if (enabled_ && wakeupTime() > clock().now()) wakeupTimeIs(clock().now());
}

void PolicySm::onTime() {
    if (!enabled_) return;
    const Quil::Seconds end = clock().now() + quantum_;
    while (step()) {
        if (clock().now() >= end) return wakeupTimeIs(clock().now());
    }
    scheduleRetries();
}

void PolicySm::scheduleRetries() {
    Quil::Seconds next = Quil::never;
    const auto consider = [&](Quil::Seconds at) {
        if (at != 0) next = std::min(next, at);
    };
    for (const Quil::Seconds at : {sweepRetryAt_, raisedRetryAt_, againRetryAt_, doomedRetryAt_}) consider(at);
    for (const auto& [source, input] : inputs_) {
        consider(input->objectsRetryAt);
        consider(input->hostsRetryAt);
    }
    if (next < wakeupTime()) wakeupTimeIs(next);
}

void PolicySm::settle() {
    while (enabled_ && step()) {
    }
}

bool PolicySm::isSettled() const {
    return !sweep_ && nextSwept_ == 0 && !raised_.isWalking() && again_.isEmpty() &&
           (awaited_ != 0 || !objects_.canRemove()) &&
           std::all_of(inputs_.begin(), inputs_.end(), [](const auto& input) { return input.second->isSettled(); });
}

bool PolicySm::step() {
    const auto electKey = [this](const auto& key) { elect(key); };
    bool any = sweepStep();
    attempt(raisedRetryAt_, [&] { any = raisedStep() || any; });
    any = walkStep() || any;
    for (const auto& [source, input] : inputs_) any = stepOf(*input) || any;
    attempt(againRetryAt_, [&] { any = again_.step(electKey) || any; });
    attempt(doomedRetryAt_, [&] { any = (awaited_ == 0 && objects_.removeDoomed(!any)) || any; });
    return any;
}

bool PolicySm::sweepStep() {
    if (!sweep_) {
        if (nextSwept_ == 0) return false;
        swept_ = std::exchange(nextSwept_, 0);
        sweep_ = output_->hosts().begin();
        raised_.walk();
    }
    return attempt(sweepRetryAt_, [&] {
        if (!sweep_) return;
        if (isDue(sweep_)) reelect(sweep_.key());
        ++sweep_;
    });
}

// What was raised is over with the row, and with its source.
bool PolicySm::raisedStep() {
    if (!raised_.isWalking()) return false;
    raised_.step([this](L2Rib::Source source, const auto& key) {
        const auto of = inputs_.find(source);
        if (of == inputs_.end()) {
            if (!(absent_ & source)) raised_.del(source, key);
        } else if (of->second->isWhole() && !of->second->hasRow(key)) {
            of->second->forget(key);
        }
    });
    return true;
}

bool PolicySm::isDue(const L2Rib::HostOutput::IteratorConst& at) const {
    const bool isSwept = swept_ == L2Rib::sourceAll || (at->source() & swept_) != 0;
    return (isSwept || mobility_.isConflict(at.key())) && !isStillWalkedTo(at);
}

// Whether a walk comes to this host, which is elected then.
bool PolicySm::isStillWalkedTo(const L2Rib::HostOutput::IteratorConst& at) const {
    return std::any_of(inputs_.begin(), inputs_.end(), [&](const auto& item) {
        const auto& walk = item.second->hosts().walk();
        return walk && walk.position() <= at.position() && item.second->hasRow(at.key());
    });
}

// Of all walks the ones that are least far, which stand on one host.
bool PolicySm::walkStep() {
    using Walk = L2Rib::HostInput::IteratorConst;
    const Walk* first = nullptr;
    for (const auto& [source, input] : inputs_) {
        const Walk& walk = input->hosts().walk();
        if (walk && (!first || walk.position() < first->position())) first = &walk;
    }
    if (!first) return false;
    const Bridging::MacVlanPair key = first->key();
    bool isToBeTriedAgain = false;
    try {
        reelect(key);
    } catch (const Quil::Exception& error) {
        trace().log(1, [&] { return Quil::cat("the merge of ", key, " is held up: ", error.what()); });
        isToBeTriedAgain = true;
    }
    for (const auto& [source, input] : inputs_) {
        if (!input->hosts().walk() || !(input->hosts().walk().key() == key)) continue;
        if (std::exchange(isToBeTriedAgain, false)) input->mark(key);
        input->hosts().walkOn();
    }
    return true;
}

bool PolicySm::stepOf(Input& input) {
    bool any = false;
    attempt(input.objectsRetryAt, [&] { any = input.stepObjects(); });
    attempt(input.hostsRetryAt, [&] { any = input.stepHosts([this](const auto& key) { elect(key); }) || any; });
    return any;
}

// False when it fails, and when it has failed a moment ago.
template <class F>
bool PolicySm::attempt(Quil::Seconds& retryAt, F&& run) {
    if (retryAt != 0 && clock().now() < retryAt) return false;
    retryAt = 0;
    try {
        run();
        return true;
    } catch (const Quil::Exception& error) {
        trace().log(1, [&] { return Quil::cat("the merge is held up: ", error.what()); });
        retryAt = clock().now() + retry;
        if (wakeupTime() > retryAt) wakeupTimeIs(retryAt);
        return false;
    }
}

void PolicySm::lookAgain(const Bridging::MacVlanPair& key) {
    again_.add(key);
    kick();
}

void PolicySm::policyIs(const Policy& policy) {
    rules_ = policy;
    mobility_.rulesAre(policy.duplicates);
    for (const auto& [source, input] : inputs_) input->rulesChanged(*output_);
    sweep(L2Rib::sourceAll);
}

bool PolicySm::isRemembered(L2Rib::Source source) const {
    const SourceInput* of = input(source);
    return of ? !of->isWhole() : (awaited_ & source) != 0;
}

void PolicySm::collectClaims(const Bridging::MacVlanPair& key, const L2Rib::HostAndSource* published) {
    const auto isEligible = [](const Candidate& claim) { return claim.standing == Candidate::Standing::eligible; };
    claims_.clear();
    std::uint32_t claimants = 0;
    std::optional<std::uint32_t> remoteSeqNo;
    for (const auto& [source, input] : inputs_) {
        const auto claim = input->claim(key);
        if (!claim) continue;
        claims_.push_back(*claim);
        claimants |= source;
        if (isEligible(*claim) && !isLocal(claim->host) && !isStatic(claim->host.entryType())) {
            remoteSeqNo = std::max(remoteSeqNo.value_or(0), claim->host.seqNo().value());
        }
    }
    for (Candidate& claim : claims_) {
        const bool isLocalDynamic = isLocal(claim.host) && !isStatic(claim.host.entryType());
        if (!isEligible(claim) || !isLocalDynamic) continue;
        inputs_.at(claim.source)->raise(claim, remoteSeqNo);
    }
    const bool isHeld = published && std::none_of(claims_.begin(), claims_.end(), isEligible);
    for (const auto& [source, input] : inputs_) {
        const bool stands = isHeld && published->source() == source && !input->isWhole();
        if (!(claimants & source) && !stands) input->forget(key);
    }
}

bool PolicySm::staysFrozen(const L2Rib::HostAndSource& published, const Candidate& winner) const {
    if (!mobility_.isFrozen(published.key()) || isStatic(winner.host.entryType())) return false;
    const L2Rib::ObjTuple& next = published.host().next();
    return std::any_of(claims_.begin(), claims_.end(), [&](const Candidate& claim) {
        return claim.source == published.source() && claim.standing == Candidate::Standing::eligible &&
               (next == L2Rib::ObjTuple() || next == claim.host.next());
    });
}

// Not because the host has moved.
void PolicySm::reelect(const Bridging::MacVlanPair& key) {
    isReelecting_ = true;
    const std::unique_ptr<bool, void (*)(bool*)> ends(&isReelecting_, [](bool* flag) { *flag = false; });
    elect(key);
}

void PolicySm::elect(const Bridging::MacVlanPair& key) {
    L2Rib::HostAndSource before;
    const L2Rib::HostAndSource* published = output_->host(key, before) ? &before : nullptr;
    collectClaims(key, published);
    mobility_.conflictIs(key, haveConflict(claims_));
    const Result result = Agent::elect(claims_);
    if (!result.winner) {
        if (!published || isRemembered(published->source())) return;
        output_->hostDel(key);
        objects_.hostLeads({}, published->host().next());
        return mobility_.gone(key);
    }
    if (published && staysFrozen(*published, *result.winner)) return;
    L2Rib::HostAndSource after(key);
    after.hostIs(result.winner->host);
    after.sourceIs(result.winner->source);
    if (published && isSameRow(*published, after)) return;
    trace().log(8, [&] { return Quil::cat("host ", key, " goes to ", after.source(), " by ", stepName(result.step)); });
    output_->hostIs(after);
    objects_.hostLeads(after.host().next(), published ? published->host().next() : L2Rib::ObjTuple());
    mobility_.published(published, after, !isReelecting_);
}

PolicySm::Explanation PolicySm::explain(const Bridging::MacVlanPair& key) const {
    L2Rib::HostAndSource row;
    Explanation explanation;
    if (output_->host(key, row)) explanation.published = row;
    for (const auto& [source, input] : inputs_) {
        auto claim = input->peek(key);
        if (!claim) continue;
        input->peekRaised(*claim);
        explanation.claims.push_back(*claim);
    }
    std::sort(explanation.claims.begin(), explanation.claims.end(),
              [](const Candidate& a, const Candidate& b) { return compare(a, b).first < 0; });
    return explanation;
}

}  // namespace Agent
