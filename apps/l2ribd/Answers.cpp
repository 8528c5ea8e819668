#include "l2ribd/Answers.h"

#include "common/RowText.h"

using Apps::Json;

namespace {

Bridging::MacVlanPair keyOf(const Json& text) { return Bridging::MacVlanPair(text.get<Quil::String>()); }

const char* nameOf(Agent::Candidate::Standing standing) {
    using enum Agent::Candidate::Standing;
    return standing == eligible ? "eligible" : standing == waits ? "waits" : "over-quota";
}

Json jsonOf(const Agent::Candidate& claim, const Agent::Candidate& winner) {
    L2Rib::HostAndSource row(claim.host.key());
    row.hostIs(claim.host);
    row.sourceIs(claim.source);
    return {{"row", Apps::hexOf(row)},
            {"standing", nameOf(claim.standing)},
            {"step", stepName(compare(winner, claim).second)},
            {"vtep", claim.vtep.str()}};
}

Json jsonOf(const Agent::Mobility::History& history) {
    Json last = Json::array();
    for (const auto& move : history.last) last.push_back({{"when", move.when}, {"to", Apps::hexOf(move.to)}});
    return {{"count", history.moves},
            {"firstSource", static_cast<std::uint32_t>(history.firstSource)},
            {"before", Apps::hexOf(history.before)},
            {"last", last}};
}

}  // namespace

Json Answers::operator()(const Json& question, bool isOwner) {
    Json answer = Json::object();
    Apps::JsonObject object(question);
    object.read("explain", [&](const Json& key) { answer = explain(keyOf(key)); });
    object.read("counts", [&](const Json&) { answer = counts(); });
    if (object.has("flags")) answer = Json::array();
    object.readEach("flags", [&](const Json& key) { answer.push_back(flags(keyOf(key))); });
    object.read("clear", [&](const Json& key) {
        if (!isOwner) throw Quil::RangeException("only the agent's own user and root may clear");
        answer = {{"cleared", clear(key)}};
    });
    object.end();
    return answer;
}

Json Answers::explain(const Bridging::MacVlanPair& key) const {
    const auto explanation = policy_.explain(key);
    const auto& claims = explanation.claims;
    Json list = Json::array();
    for (const auto& claim : claims) list.push_back(jsonOf(claim, claims.front()));
    Json answer{{"published", explanation.published ? Json(Apps::hexOf(*explanation.published)) : Json()},
                {"step", stepName(Agent::elect(claims).step)},
                {"claims", list},
                {"flags", flags(key, explanation)}};
    if (const auto* history = policy_.mobility().history(key)) answer["moves"] = jsonOf(*history);
    return answer;
}

Quil::String Answers::flags(const Bridging::MacVlanPair& key) const { return flags(key, policy_.explain(key)); }

Quil::String Answers::flags(const Bridging::MacVlanPair& key, const Agent::PolicySm::Explanation& explanation) const {
    const auto& published = explanation.published;
    const auto* history = policy_.mobility().history(key);
    const bool isAmongOthers = explanation.claims.size() > 1;
    Quil::String text;
    if (published && Agent::isStatic(published->host().entryType())) text += 'S';
    if (history && history->isDuplicate) text += 'D';
    if (history && history->isFrozen) text += 'F';
    if (policy_.mobility().isConflict(key)) text += 'C';
    if (isAmongOthers) text += '*';
    return text;
}

Json Answers::counts() const {
    const auto& mobility = policy_.mobility();
    Json sources = Json::array();
    policy_.forEachInput([&](L2Rib::Source source, const Agent::SourceInput& input) {
        sources.push_back({{"source", static_cast<std::uint32_t>(source)},
                           {"waiting", input.numWaiting()},
                           {"refused", input.numRefused()},
                           {"overQuota", input.numOverQuota()}});
    });
    return {{"moves", mobility.movesSeen()},        {"duplicates", mobility.numDuplicates()},
            {"conflicts", mobility.numConflicts()}, {"conflictsSeen", mobility.conflictsSeen()},
            {"awaited", policy_.awaited()},         {"sources", sources}};
}

std::size_t Answers::clear(const Json& key) {
    if (!key.is_null()) return policy_.mobility().clear(keyOf(key));
    const std::size_t duplicates = policy_.mobility().numDuplicates();
    policy_.mobility().clearAll();
    return duplicates;
}
