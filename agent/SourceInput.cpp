#include "agent/SourceInput.h"

#include <cmath>

namespace Agent {
namespace {

double moveTime(const L2Rib::Host& host) { return std::isnan(host.lastMoveTime()) ? 0.0 : host.lastMoveTime(); }

}  // namespace

bool SourceInput::Stay::isAt(const L2Rib::Host& host) const {
    return since == moveTime(host) && intf == host.ciDest().intf() && destType == host.ciDest().destType();
}

SourceInput::Stay SourceInput::stayOf(const L2Rib::Host& host) {
    return {host.ciDest().intf(), moveTime(host), host.ciDest().destType(), host.seqNo().value()};
}

SourceInput::SourceInput(L2Rib::Source source, const InputTables& tables, const Policy& rules, ObjectOutputs& outputs,
                         const std::function<void()>& kick)
    : source_(source),
      rules_(rules),
      table_(tables.hosts),
      hosts_(tables.hosts, kick),
      graph_(
          source, tables.objects, outputs, [this](const auto& key) { hosts_.mark(key); }, kick) {
    quota_.limitIs(rules.quota(source));
}

void SourceInput::rulesChanged() {
    if (quota_.limit() == rules_.quota(source_)) return;
    quota_.limitIs(rules_.quota(source_));
    hosts_.walkAgain();
}

void SourceInput::isWholeIs(bool isWhole) {
    isWhole_ = isWhole;
    graph_.isWholeIs(isWhole);
}

bool SourceInput::hasRow(const Key& key) const {
    L2Rib::Host host;
    return table_->host(key, host);
}

std::optional<Candidate> SourceInput::claim(const Key& key) {
    using enum Candidate::Standing;
    L2Rib::Host host;
    if (!table_->host(key, host)) return std::nullopt;
    const L2Rib::ObjTuple own = host.next(), next = graph_.hostNextIs(key, own);
    const bool leadsSomewhere = own == L2Rib::ObjTuple() || !(next == L2Rib::ObjTuple());
    if (leadsSomewhere) host.nextIs(next);
    Candidate claim = candidateOf(source_, host, rules_, graph_.lowestVtep(own));
    claim.standing = !quota_.admit(key) ? overQuota : leadsSomewhere ? eligible : waits;
    return claim;
}

void SourceInput::raise(Candidate& candidate, std::optional<std::uint32_t> remoteSeqNo,
                        const L2Rib::HostAndSource* published) {
    L2Rib::Host& host = candidate.host;
    const auto [at, isNew] = stays_.try_emplace(host.key());
    Stay& stay = at->second;
    if (isNew || !stay.isAt(host)) {
        stay = stayOf(host);
        stay.seqNo = seqNoOnArrival(host, remoteSeqNo, isNew, published);
    }
    host.seqNoIs(Keel::Seqno32(std::max(stay.seqNo, host.seqNo().value())));
}

std::uint32_t SourceInput::seqNoOnArrival(const L2Rib::Host& host, std::optional<std::uint32_t> remoteSeqNo, bool isNew,
                                          const L2Rib::HostAndSource* published) const {
    const std::uint32_t own = host.seqNo().value();
    if (isNew && published && published->source() == source_) {
        const L2Rib::Host& there = published->host();
        if (stayOf(there).isAt(host)) return std::max(own, there.seqNo().value());
    }
    const bool hasAppeared = remoteSeqNo && !hosts_.isFirstWalk() && *remoteSeqNo != 0xffffffffu;
    return hasAppeared ? std::max(own, *remoteSeqNo + 1) : own;
}

void SourceInput::forget(const Key& key) {
    graph_.hostNextIs(key, {});
    stays_.erase(key);
    if (const auto next = quota_.release(key)) hosts_.mark(*next);
}

}  // namespace Agent
