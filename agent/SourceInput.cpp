#include "agent/SourceInput.h"

#include <algorithm>

namespace Agent {
bool SourceInput::Stay::isAt(const L2Rib::Host& host) const {
    return since == moveTime(host) && intf == host.ciDest().intf() && destType == host.ciDest().destType();
}

SourceInput::Stay SourceInput::stayOf(const L2Rib::Host& host) {
    return {host.ciDest().intf(), moveTime(host), host.ciDest().destType(), host.seqNo().value()};
}

SourceInput::SourceInput(L2Rib::Source source, const InputTables& tables, const Policy& rules, ObjectOutputs& outputs,
                         Raised& raised, const std::function<void()>& kick)
    : source_(source),
      rules_(rules),
      table_(tables.hosts),
      raised_(raised),
      hosts_(tables.hosts, kick),
      graph_(
          source, tables.objects, outputs, [this](const auto& key) { hosts_.mark(key); }, kick) {
    quota_.limitIs(rules.quota(source));
}

void SourceInput::rulesChanged(const L2Rib::HostOutput& output) {
    const std::uint32_t limit = rules_.quota(source_), before = quota_.limit();
    if (limit == before) return;
    for (const auto& key : quota_.limitIs(limit)) hosts_.mark(key);
    if (before != 0) return;
    admitPublished(output);
    hosts_.walkAgain();
}

void SourceInput::admitPublished(const L2Rib::HostOutput& output) {
    if (quota_.limit() == 0) return;
    for (const auto& row : output.hosts()) {
        if (row.source() == source_) quota_.admit(row.key());
    }
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
    L2Rib::Host host;
    if (!table_->host(key, host)) return std::nullopt;
    graph_.hostNextIs(key, host.next());
    quota_.admit(key);
    return claimOf(host);
}

std::optional<Candidate> SourceInput::peek(const Key& key) const {
    L2Rib::Host host;
    return table_->host(key, host) ? std::optional(claimOf(host)) : std::nullopt;
}

Candidate SourceInput::claimOf(L2Rib::Host host) const {
    using enum Candidate::Standing;
    const L2Rib::ObjTuple own = host.next(), next = graph_.outputOf(own);
    const bool leadsSomewhere = own == L2Rib::ObjTuple() || !(next == L2Rib::ObjTuple());
    if (leadsSomewhere) host.nextIs(next);
    Candidate claim = candidateOf(source_, host, rules_, graph_.lowestVtep(own));
    claim.standing = !quota_.isAdmitted(host.key()) ? overQuota : leadsSomewhere ? eligible : waits;
    return claim;
}

void SourceInput::raise(Candidate& claim, std::optional<std::uint32_t> remoteSeqNo) {
    const Key key = claim.host.key();
    const auto known = stays_.find(key);
    const bool hasArrived = known == stays_.end() || !known->second.isAt(claim.host);
    if (hasArrived) {
        Stay stay = stayOf(claim.host);
        stay.seqNo = seqNoOnArrival(claim.host, remoteSeqNo);
        keep(claim.host, stay.seqNo);
        stays_.insert_or_assign(key, stay);
    }
    peekRaised(claim);
}

void SourceInput::keep(L2Rib::Host host, std::uint32_t seqNo) {
    if (seqNo <= host.seqNo().value()) return raised_.del(source_, host.key());
    host.seqNoIs(Keel::Seqno32(seqNo));
    raised_.is(source_, host);
}

void SourceInput::peekRaised(Candidate& claim) const {
    const auto stay = stays_.find(claim.host.key());
    if (stay == stays_.end() || !stay->second.isAt(claim.host)) return;
    claim.host.seqNoIs(Keel::Seqno32(std::max(stay->second.seqNo, claim.host.seqNo().value())));
}

std::uint32_t SourceInput::seqNoOnArrival(const L2Rib::Host& host, std::optional<std::uint32_t> remoteSeqNo) const {
    const std::uint32_t own = host.seqNo().value();
    const auto kept = raised_.of(source_, host.key());
    if (kept && stayOf(*kept).isAt(host)) return std::max(own, kept->seqNo().value());
    const bool hasAppeared = remoteSeqNo && !hosts_.isFirstWalk() && *remoteSeqNo != 0xffffffffu;
    return hasAppeared ? std::max(own, *remoteSeqNo + 1) : own;
}

void SourceInput::forget(const Key& key) {
    graph_.hostNextIs(key, {});
    const bool mayComeBack = !isWhole_ && raised_.of(source_, key);
    if (!mayComeBack) {
        raised_.del(source_, key);
        stays_.erase(key);
    }
    if (const auto next = quota_.release(key)) hosts_.mark(*next);
}

}  // namespace Agent
