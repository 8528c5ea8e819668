#include "L2Rib/L2RibClientSm.h"

#include "L2Rib/L2RibOutputIteratorConst.h"
#include "Quil/Exception.h"
#include "Quil/Trace.h"

namespace L2Rib {
namespace {

using Bridging::MacVlanPair;
using Quil::cat;
using Quil::String;

constexpr int misconfigurationLevel = 3, stateLevel = 5, detailLevel = 8, signatureLevel = 9;

constexpr Quil::Seconds fillInterval = 4, minDelay = 0.1, maxDelay = 5;
constexpr std::uint32_t maxCredits = 4;

// Where an unfinished pass goes on; the default key: at the smallest. One for all clients of the process, which is why
// it lives here and not in a header.
MacVlanPair reviewBookmark;

Quil::Trace& trace() {
    static Quil::Trace& handle = Quil::Trace::handler("L2Rib::L2RibClientSm");
    return handle;
}
void traceSignature(const char* signature) {
    trace().log(signatureLevel, [&] { return String(signature); });
}
template <class T>
void traceSignature(const char* signature, const T& argument) {
    trace().log(signatureLevel, [&] { return cat(signature, " ( ", argument, " )"); });
}

}  // namespace

L2RibClientSm::L2RibClientSm(String name, Quil::Ptr<Plugin::Context> pluginContext)
    : Entity(std::move(name)), pluginContext_(std::move(pluginContext)) {
    pluginContextReactor_.notifierIs(pluginContext_);
    l2RibOutputIs(pluginContext_->l2RibOutput());
    clockIs(pluginContext_->clock());
    handleInitialized();
}

L2RibClientSm::~L2RibClientSm() { handleDelete(); }

void L2RibClientSm::QuilPluginContext::onL2RibOutput() {
    traceSignature("virtual void L2Rib::L2RibClientSm::QuilPluginContext::onL2RibOutput()");
    sm_.l2RibOutputIs(notifier()->l2RibOutput());
}

void L2RibClientSm::QuilPluginContext::onClock() {
    traceSignature("virtual void L2Rib::L2RibClientSm::QuilPluginContext::onClock()");
    sm_.clockIs(notifier()->clock());
}

void L2RibClientSm::l2RibOutputIs(const Quil::Ptr<const HostOutput>& l2RibOutput) {
    l2RibOutput_ = l2RibOutput;
    l2RibOutputReactor_.notifierIs(l2RibOutput);
}

void L2RibClientSm::clockIs(const Quil::Ptr<const Quil::Clock>& clock) {
    const bool wasDue = reviewTimer_ && reviewTimer_->wakeupTime() != Quil::never;
    clock_ = clock;
    reviewTimer_ = nullptr;
    if (!initialized_ || !clock_) return;
    makeReviewTimer();
    if (wasDue || !changedHost_.empty()) doKickReview();
}

void L2RibClientSm::makeReviewTimer() {
    reviewTimer_ = Quil::makePtr<Keel::ReviewTimer>(std::make_unique<QuilClock>(*this, clock_), fillInterval,
                                                    maxCredits, minDelay, maxDelay);
}

void L2RibClientSm::handleInitialized() {
    traceSignature("void L2Rib::L2RibClientSm::handleInitialized()");
    if (pluginContext_->pluginName().contains(name())) {
        trace().log(misconfigurationLevel, [&] { return cat(" Duplicate name ", name(), " among plugins"); });
    }
    pluginContext_->pluginNameIs(name(), true);
    pluginContext_->pluginCountInc();
}

void L2RibClientSm::handleDelete() {
    if (std::exchange(isDeleted_, true)) return;
    traceSignature("void L2Rib::L2RibClientSm::handleDelete()");
    pluginContext_->pluginNameDel(name());
    pluginContext_->pluginCountDec();
}

void L2RibClientSm::sourceFilterIs(std::uint32_t filter) {
    traceSignature("void L2Rib::L2RibClientSm::sourceFilterIs(Quil::U32)", filter);
    if (!initialized_) {
        initialized_ = true;
        if (clock_) makeReviewTimer();
        reviewBookmark = {};
        sourceFilter_ = filter;
        return doKickReview();
    }
    const std::uint32_t change = filter ^ sourceFilter_;
    trace().log(stateLevel, [&] { return cat("  change ", Quil::hex(change)); });
    for (const auto& entry : source_) {
        const MacVlanPair& key = entry.first;
        if ((entry.second.source() & change) == 0) continue;
        trace().log(detailLevel, [&] { return cat("   Host ", key, " removed"); });
        changedHost_[key] = false;
    }
    reviewedOnce_ = false;
    sourceFilter_ = filter;
    doKickReview();
}

// Whether one of the wanted sources has the host; and whether any has.
bool L2RibClientSm::isWanted(const MacVlanPair& key, bool& isPresent) const {
    HostAndSource record;
    isPresent = l2RibOutput_ && l2RibOutput_->host(key, record);
    return isPresent && (record.source() & sourceFilter_) != 0;
}

void L2RibClientSm::handleHost(const MacVlanPair& key) {
    traceSignature("void L2Rib::L2RibClientSm::handleHost(const Bridging::MacVlanPair&)", key);
    if (!initialized_ || sourceFilter_ == 0) return;
    if (changedHost_.empty()) doKickReview();
    bool isPresent = false;
    if (isWanted(key, isPresent)) {
        changedHost_[key] = true;
    } else if (const auto delivered = source_.find(key);
               !isPresent && delivered != source_.end() && (delivered->second.source() & sourceFilter_) != 0) {
        changedHost_[key] = false;
    }
    trace().log(stateLevel, [&] {
        const auto marked = changedHost_.find(key);
        const bool isAdded = marked != changedHost_.end() && marked->second;
        return cat("Host ", key, isAdded ? "added to" : "removed from", " L2RibOutput. Change count is ",
                   changedHost_.size());
    });
}

void L2RibClientSm::doKickReview() {
    traceSignature("void L2Rib::L2RibClientSm::doKickReview()");
    if (reviewTimer_) reviewTimer_->doUpdateNextReview();
}

void L2RibClientSm::doReplayHosts() {
    traceSignature("void L2Rib::L2RibClientSm::doReplayHosts()");
    reviewedOnce_ = false;
    doKickReview();
}

void L2RibClientSm::handleClock() {
    traceSignature("void L2Rib::L2RibClientSm::handleClock()");
    if (!initialized_ || sourceFilter_ == 0) return;
    const auto keep = Quil::heldWhileCounted(this);  // a handler may drop the last other reference
    if (!reviewedOnce_) {
        doSyncHosts();
        if (reviewBookmark != MacVlanPair()) {
            trace().log(detailLevel, [] { return String("Some hosts are left non reviewed"); });
            reviewTimer_->wakeupTimeIs(clock_->now());
            return;
        }
        reviewedOnce_ = true;
    }
    try {
        doProcessHosts();
    } catch (...) {
        doKickReview();  // what is left is not waiting for another change
        throw;
    }
    trace().log(detailLevel, [] { return String("Review Finished"); });
    reviewTimer_->timeOfLastReviewIs(clock_->now());
    if (!changedHost_.empty()) reviewTimer_->wakeupTimeIs(clock_->now());
}

void L2RibClientSm::doSyncHosts() {
    traceSignature("void L2Rib::L2RibClientSm::doSyncHosts()");
    if (!initialized_) return;
    const Quil::Seconds deadline = clock_->now() + backlogQuantum_;
    auto at = reviewBookmark == MacVlanPair()
                  ? L2RibOutputIteratorConst(l2RibOutput_, sourceFilter_)
                  : L2RibOutputIteratorConst(l2RibOutput_, sourceFilter_, {}, reviewBookmark);
    for (; !at.done() && deadline > clock_->now(); ++at) changedHost_[at.key()] = true;
    trace().log(stateLevel, [&] { return cat(changedHost_.size(), " host changed detected"); });
    // Room for all of them now, while little would have to move: a pass is not to pay for it.
    if (changedHost_.size() > source_.bucket_count()) source_.reserve(2 * changedHost_.size());
    reviewBookmark = at.done() ? MacVlanPair() : at.key();
}

void L2RibClientSm::doProcessHosts() {
    traceSignature("void L2Rib::L2RibClientSm::doProcessHosts()");
    const Quil::Seconds deadline = clock_->now() + backlogQuantum_;
    // The default key is the smallest. No iterator is held across a handler, which may change the map.
    auto at = changedHost_.lower_bound(reviewBookmark);
    while (at != changedHost_.end() && clock_->now() <= deadline) {
        const MacVlanPair key = at->first;
        review(key, at->second);
        ++hostsProcessed_;
        changedHost_.erase(key);
        at = changedHost_.upper_bound(key);
    }
    trace().log(stateLevel, [&] { return cat("Hosts Processed: ", hostsProcessed_); });
    if (changedHost_.empty()) return;
    trace().log(stateLevel,
                [&] { return cat("Yielding processing of changed groups. ", changedHost_.size(), " remain"); });
    ++yieldBeforeFinishingCount_;
    reviewBookmark = at == changedHost_.end() ? MacVlanPair() : at->first;
    trace().log(stateLevel, [&] { return cat("Yielded ", yieldBeforeFinishingCount_, " times so far"); });
}

void L2RibClientSm::review(const MacVlanPair& key, bool isWanted) {
    if (!isWanted) {
        trace().log(detailLevel, [&] { return cat("   Deleting host ", key); });
        doRemoveHost(key);
        source_.erase(key);
        return;
    }
    if (source_.contains(key)) {
        trace().log(detailLevel, [&] { return cat("   Updating host ", key); });
        doUpdateHost(key);
    } else {
        trace().log(detailLevel, [&] { return cat("   Adding host", key); });
        doAddHost(key);
    }
    source_[key] = HostKeyAndSource(key, l2RibOutput_ ? l2RibOutput_->host(key).source() : sourceNone);
}

void L2RibClientSm::doAddHost(const MacVlanPair& key) {
    traceSignature("virtual void L2Rib::L2RibClientSm::doAddHost(const Bridging::MacVlanPair&)", key);
    throw Quil::NoImplementationException("doAddHost must be implemented in the derived class");
}

void L2RibClientSm::doUpdateHost(const MacVlanPair& key) {
    traceSignature("virtual void L2Rib::L2RibClientSm::doUpdateHost(const Bridging::MacVlanPair&)", key);
}

void L2RibClientSm::doRemoveHost(const MacVlanPair& key) {
    traceSignature("virtual void L2Rib::L2RibClientSm::doRemoveHost(const Bridging::MacVlanPair&)", key);
    throw Quil::NoImplementationException("doRemoveHost must be implemented in the derived class");
}

const Quil::Type& L2RibClientSm::fwkType() const { return Quil::typeOf<L2RibClientSm>(); }

void L2RibClientSm::fwkDeclare(Quil::TypeBuilder<L2RibClientSm>& type) {
    type.name("L2Rib::L2RibClientSm")
        .attribute("name", [](const L2RibClientSm& sm) { return sm.name(); })
        .attribute("sourceFilter", &L2RibClientSm::sourceFilter, &L2RibClientSm::sourceFilterIs)
        .attribute("source", [](const L2RibClientSm& sm) { return Quil::mapText(sm.source()); })
        .attribute("reviewedOnce", &L2RibClientSm::reviewedOnce)
        .attribute("changedHost", [](const L2RibClientSm& sm) { return Quil::mapText(sm.changedHost()); })
        .attribute("backlogQuantum", &L2RibClientSm::backlogQuantum, &L2RibClientSm::backlogQuantumIs)
        .attribute("hostsProcessed", &L2RibClientSm::hostsProcessed)
        .attribute("yieldBeforeFinishingCount", &L2RibClientSm::yieldBeforeFinishingCount)
        .attribute("initialized", &L2RibClientSm::initialized);
}

Quil::Ptr<L2RibClientSm> l2RibClientSmFactory(const String& name, const Quil::Ptr<Plugin::Context>& pluginContext) {
    return Quil::makePtr<L2RibClientSm>(name, pluginContext);
}

}  // namespace L2Rib
