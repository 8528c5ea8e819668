// l2rib host explain, host clear: why a host is where it is; and that it may go elsewhere again.
#include <cstdio>
#include <iostream>

#include "common/HostText.h"
#include "common/RowText.h"
#include "l2rib/AgentQuestions.h"
#include "l2rib/Command.h"
#include "l2rib/Selectors.h"

namespace Tool {
namespace {

using Apps::Json;
using L2Rib::HostAndSource;

struct Claim {
    HostAndSource row;
    std::string standing, step, vtep;
    bool isEligible() const { return standing == "eligible"; }
};

// What the agent says, and how it is put.
class Explanation {
 public:
    Explanation(const Options& options, const Bridging::MacVlanPair& key)
        : answer_(AgentQuestions(options.root).ask({{"explain", key.str()}})),
          key_(key),
          names_(Apps::InterfaceNames::readFrom(options.root)),
          em_(loop_, options.root, "l2rib"),
          objects_(em_) {
        for (const Json& claim : answer_.at("claims")) {
            claims_.push_back({Apps::rowOf<HostAndSource>(claim.at("row")), claim.at("standing").get<std::string>(),
                               claim.at("step").get<std::string>(), claim.at("vtep").get<std::string>()});
        }
        if (!answer_.at("published").is_null()) published_ = Apps::rowOf<HostAndSource>(answer_.at("published"));
    }

    bool isKnown() const { return !claims_.empty() || published_; }
    void print() const {
        std::printf("%s/%s  %s\n", Quil::cat(key_.vlanId()).c_str(), key_.ethAddr().str().c_str(), headline().c_str());
        printClaims();
        for (const auto& note : notes()) std::printf("  %s\n", note.c_str());
        if (answer_.contains("moves")) std::printf("  %s\n", moves().c_str());
    }
    Json json() const;

 private:
    const Claim* winner() const { return !claims_.empty() && claims_[0].isEligible() ? &claims_[0] : nullptr; }
    Apps::HostView view(const HostAndSource& row) const { return Apps::viewOf(row, names_, &objects_); }
    // Where a waiting claim leads to is an object of its source, not of the output.
    std::string viaOf(const Claim& claim) const {
        return claim.standing == "waits" ? "its " + Apps::nameOf(claim.row.host().next()) : view(claim.row).via;
    }
    bool has(char flag) const { return answer_.at("flags").get<std::string>().find(flag) != std::string::npos; }

    std::string headline() const {
        if (!winner()) return isKnown() ? "no winner" : "no claim";
        return "winner " + Apps::sourceName(winner()->row.source()) + ": " + reason();
    }
    std::string reason() const {
        static const std::map<std::string, const char*> texts{{"only-candidate", "the only candidate"},
                                                              {"preference", "higher preference"},
                                                              {"static-first", "static before dynamic"},
                                                              {"seq-no", "higher sequence"},
                                                              {"vtep", "lower VTEP"},
                                                              {"last-move-time", "later move"},
                                                              {"source-bit", "lower source bit"}};
        const auto found = texts.find(answer_.at("step").get<std::string>());
        return found == texts.end() ? "?" : found->second;
    }
    // Both values of the step at which it lost.
    std::string loss(const Claim& claim) const {
        const L2Rib::Host &lost = claim.row.host(), &won = claims_[0].row.host();
        const auto vtep = [](const Claim& c) { return c.vtep == "0.0.0.0" ? std::string("none") : c.vtep; };
        if (claim.standing == "waits") return "waits: its object leads nowhere";
        if (claim.standing == "over-quota") return "waits: its source is over its quota";
        if (claim.step == "preference")
            return Quil::cat("lost: preference ", lost.preference(), " < ", won.preference());
        if (claim.step == "static-first") return "lost: dynamic, not static";
        if (claim.step == "seq-no") return Quil::cat("lost: sequence ", lost.seqNo(), " < ", won.seqNo());
        if (claim.step == "vtep") return Quil::cat("lost: VTEP ", vtep(claim), " > ", vtep(claims_[0]));
        if (claim.step == "last-move-time") {
            return Quil::cat("lost: moved at ", lost.lastMoveTime(), " < ", won.lastMoveTime());
        }
        const auto bit = [](const Claim& c) { return static_cast<std::uint32_t>(c.row.source()); };
        return Quil::cat("lost: source bit ", bit(claim), " > ", bit(claims_[0]));
    }
    void printClaims() const {
        int source = 0, pref = 0, seq = 0, via = 0;
        const auto widen = [](int& width, const auto& value) {
            width = std::max(width, static_cast<int>(Quil::cat(value).size()));
        };
        for (const Claim& claim : claims_) {
            widen(source, Apps::sourceName(claim.row.source()));
            widen(pref, claim.row.host().preference());
            widen(seq, claim.row.host().seqNo());
            widen(via, viaOf(claim));
        }
        int number = 0;
        for (const Claim& claim : claims_) {
            const L2Rib::Host& host = claim.row.host();
            std::printf("  %d  %-*s  pref %*u  seq %*u  %-*s  %s\n", ++number, source,
                        Apps::sourceName(claim.row.source()).c_str(), pref, host.preference(), seq,
                        host.seqNo().value(), via, viaOf(claim).c_str(),
                        &claim == winner() ? "WINNER" : loss(claim).c_str());
        }
    }
    std::vector<std::string> notes() const {
        std::vector<std::string> notes;
        if (has('F')) notes.push_back("duplicate, frozen: in the output it is " + publishedText());
        if (has('D') && !has('F')) notes.push_back("duplicate: it has moved too often");
        if (has('C')) notes.push_back("conflict: static and dynamic claims lead to different places");
        if (!winner() && published_)
            notes.push_back("its source is away: in the output it is still " + publishedText());
        return notes;
    }
    std::string publishedText() const {
        if (!published_) return "not there";
        const auto row = view(*published_);
        return row.via + " (" + row.source + ")";
    }
    std::string moves() const {
        const Json& moves = answer_.at("moves");
        const auto count = moves.at("count").get<std::uint64_t>();
        const Json& last = moves.at("last");
        std::string text =
            Quil::cat("moves ", count, count > last.size() ? Quil::cat(", the last ", last.size()) : "", ": ");
        // By name: what the objects were at the time nobody knows any more.
        const auto place = [&](const Json& row) { return Apps::viewOf(Apps::rowOf<HostAndSource>(row), names_); };
        std::string from = place(moves.at("before")).via;
        const char* comma = "";
        for (const Json& move : last) {
            const auto to = place(move.at("to"));
            text += Quil::cat(std::exchange(comma, ", "), Apps::timeAt(move.at("when").get<double>()).substr(11, 8),
                              " ", from, " -> ", to.via, " (", to.source, ")");
            from = to.via;
        }
        return text;
    }

    const Json answer_;
    const Bridging::MacVlanPair key_;
    const Apps::InterfaceNames names_;
    Quil::EventLoop loop_;
    Corestore::EntityManager em_;
    const L2Rib::OutputObjects objects_;
    std::vector<Claim> claims_;
    std::optional<HostAndSource> published_;
};

Json Explanation::json() const {
    const auto row = [&](const HostAndSource& record) { return Apps::detailsOf(record, names_, &objects_); };
    Json claims = Json::array();
    for (const Claim& claim : claims_) {
        // What a waiting claim leads to is an object of its source, not of the output.
        claims.push_back(claim.standing == "waits" ? Apps::detailsOf(claim.row, names_) : row(claim.row));
        claims.back().update({{"standing", claim.standing}, {"vtep", claim.vtep}, {"winner", &claim == winner()}});
        if (&claim != winner()) claims.back()["lostAt"] = claim.step;
    }
    Json json{{"schema", 1}, {"vlan", key_.vlanId().value()}, {"mac", key_.ethAddr().str()}};
    json["published"] = published_ ? row(*published_) : Json();
    json.update({{"step", answer_.at("step")}, {"flags", answer_.at("flags")}, {"claims", claims}});
    if (!answer_.contains("moves")) return json;
    const Json& moves = answer_.at("moves");
    Json last = Json::array();
    const auto place = [&](const Json& hex) { return Apps::detailsOf(Apps::rowOf<HostAndSource>(hex), names_); };
    Json from = place(moves.at("before"));
    for (const Json& move : moves.at("last")) {
        Json to = place(move.at("to"));
        last.push_back({{"time", Apps::timeAt(move.at("when").get<double>())}, {"from", from}, {"to", to}});
        from = std::move(to);
    }
    json["moves"] = {{"count", moves.at("count")},
                     {"firstSource", Apps::sourceName(L2Rib::Source(moves.at("firstSource").get<std::uint32_t>()))},
                     {"last", last}};
    return json;
}

}  // namespace

int hostExplain(const Options& options) {
    const Selectors selectors(options.words, {"vlan", "mac"});
    const Explanation explanation(options, selectors.host());
    if (options.json) {
        std::cout << Apps::textOf(explanation.json()) << "\n";
    } else {
        explanation.print();
    }
    flushOutput();
    return explanation.isKnown() ? exitFound : exitNoMatch;
}

int hostClear(const Options& options) {
    const Selectors selectors(options.words, {"vlan", "mac"});
    const bool isOne = !options.words.empty();
    const Json answer = AgentQuestions(options.root).ask({{"clear", isOne ? Json(selectors.host().str()) : Json()}});
    return isOne && answer.at("cleared") == 0 ? exitNoMatch : exitFound;
}

}  // namespace Tool
