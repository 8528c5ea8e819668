#include "agent/Mobility.h"

#include <algorithm>

#include "Quil/Trace.h"
#include "agent/Elect.h"

namespace Agent {
namespace {

Digest::Say said() {
    return [](const Quil::String& text) { Quil::Trace::handler("Mobility").log(3, [&] { return text; }); };
}

}  // namespace

Mobility::Mobility(const Quil::Ptr<const Quil::Clock>& clock, std::function<void(const Key&)> letGo)
    : NotifieeConst(clock), letGo_(std::move(letGo)), duplicatesSaid_(clock, said()), conflictsSaid_(clock, said()) {}

Mobility::~Mobility() = default;

void Mobility::rulesAre(const DuplicateRules& rules) {
    if (rules == rules_) return;
    rules_ = rules;
    duplicatesSaid_.intervalIs(rules.logEvery);
    conflictsSaid_.intervalIs(rules.logEvery);
    clearAll();
}

void Mobility::published(const L2Rib::HostAndSource* before, const L2Rib::HostAndSource& now, bool hasMoved) {
    const Key key = now.key();
    const auto known = histories_.find(key);
    if (known != histories_.end()) {
        History& history = known->second;
        if (std::exchange(history.isGone, false)) schedule(history, key);
        if (!isSamePlace(history.last.back().to.host(), now.host())) note(history, key, now, hasMoved);
    } else if (before && !isSamePlace(before->host(), now.host())) {
        History& history = histories_[key];
        history.before = *before;
        history.firstSource = before->source();
        note(history, key, now, hasMoved);
    }
}

void Mobility::note(History& history, const Key& key, const L2Rib::HostAndSource& now, bool hasMoved) {
    if (history.last.size() == maxKept) {
        history.before = history.last.front().to;
        history.last.erase(history.last.begin());
    }
    history.last.push_back({clock().now(), now});
    ++history.moves;
    ++movesSeen_;
    if (hasMoved) detect(history, key);
}

void Mobility::detect(History& history, const Key& key) {
    const Quil::Seconds now = clock().now();
    if (history.movesInWindow == 0 || now >= history.windowBegan + rules_.window) {
        history.windowBegan = now;
        history.movesInWindow = 0;
    }
    ++history.movesInWindow;
    const bool freezes = rules_.action == DuplicateRules::Action::freeze;
    if (!history.isDuplicate && history.movesInWindow >= rules_.moves) {
        history.isDuplicate = true;
        history.isFrozen = freezes;
        history.duplicateUntil = freezes && rules_.recovery > 0 ? now + rules_.recovery : Quil::never;
        ++numDuplicates_;
        duplicatesSaid_.event(Quil::cat("host ", key, " is in two places: ", history.movesInWindow, " moves within ",
                                        rules_.window, " s", freezes ? "; it is frozen where it is" : ""));
    }
    if (history.isDuplicate && !history.isFrozen) history.duplicateUntil = now + rules_.window;
    schedule(history, key);
}

void Mobility::gone(const Key& key) {
    conflictIs(key, false);
    const auto known = histories_.find(key);
    if (known == histories_.end()) return;
    known->second.isGone = true;
    known->second.goneUntil = clock().now() + rules_.window;
    schedule(known->second, key);
}

void Mobility::conflictIs(const Key& key, bool isConflict) {
    if (!isConflict) {
        if (!conflicts_.empty()) conflicts_.erase(key);
    } else if (conflicts_.insert(key).second) {
        ++conflictsSeen_;
        conflictsSaid_.event(Quil::cat("host ", key, " is static in one place and dynamic in another"));
    }
}

bool Mobility::clear(const Key& key) {
    const auto known = histories_.find(key);
    if (known == histories_.end()) return false;
    const bool wasDuplicate = known->second.isDuplicate;
    release(known->second, key);
    return wasDuplicate;
}

void Mobility::clearAll() {
    for (auto& [key, history] : histories_) release(history, key);
}

void Mobility::release(History& history, const Key& key) {
    history.movesInWindow = 0;
    if (!history.isDuplicate) return;
    history.isDuplicate = false;
    --numDuplicates_;
    schedule(history, key);
    if (std::exchange(history.isFrozen, false)) letGo_(key);
}

const Mobility::History* Mobility::history(const Key& key) const {
    const auto known = histories_.find(key);
    return known == histories_.end() ? nullptr : &known->second;
}

bool Mobility::isFrozen(const Key& key) const {
    if (numDuplicates_ == 0) return false;
    const History* known = history(key);
    return known && known->isFrozen;
}

void Mobility::schedule(History& history, const Key& key) {
    const Quil::Seconds at = std::min(history.isDuplicate ? history.duplicateUntil : Quil::never,
                                      history.isGone ? history.goneUntil : Quil::never);
    if (at == history.deadline) return;
    if (history.deadline != Quil::never) deadlines_.erase({history.deadline, key});
    history.deadline = at;
    if (at == Quil::never) return;
    deadlines_.insert({at, key});
    if (wakeupTime() > at) wakeupTimeIs(at);
}

void Mobility::onTime() {
    while (!deadlines_.empty() && deadlines_.begin()->first <= clock().now()) expire(Key(deadlines_.begin()->second));
    if (!deadlines_.empty()) wakeupTimeIs(deadlines_.begin()->first);
}

void Mobility::expire(const Key& key) {
    History& history = histories_.at(key);
    const Quil::Seconds now = clock().now();
    if (history.isDuplicate && (history.duplicateUntil <= now || history.isGone)) release(history, key);
    if (!history.isGone || history.goneUntil > now) return;
    deadlines_.erase({history.deadline, key});
    histories_.erase(key);
}

}  // namespace Agent
