// l2rib lb show, label show, dest show: the output's objects, what they lead to, and the hosts that use them.
#include <cstdio>
#include <iostream>

#include "common/HostText.h"
#include "l2rib/Command.h"

namespace Tool {
namespace {

using Apps::Json;
using L2Rib::ObjTuple;

struct Row {
    ObjTuple tuple;
    L2Rib::ObjTupleAndSource sourceOtas;
    std::vector<Bridging::MacVlanPair> hosts;  // that lead to it, directly or not; by VLAN and MAC
};

// Which hosts lead to each object.
class Users {
 public:
    Users(const HostTable& table, const L2Rib::OutputObjects& objects) {
        std::map<ObjTuple, std::vector<Bridging::MacVlanPair>> direct;
        for (const auto& host : table.hosts->hosts()) {
            if (!(host.host().next() == ObjTuple())) direct[host.host().next()].push_back(host.key());
        }
        for (const auto& [tuple, hosts] : direct) {
            for (const ObjTuple& behind : reach(tuple, objects)) {
                auto& all = users_[behind];
                all.insert(all.end(), hosts.begin(), hosts.end());
            }
        }
        for (auto& [tuple, hosts] : users_) std::sort(hosts.begin(), hosts.end(), isBefore);
    }
    std::vector<Bridging::MacVlanPair> of(const ObjTuple& tuple) const {
        const auto found = users_.find(tuple);
        return found == users_.end() ? std::vector<Bridging::MacVlanPair>() : found->second;
    }

 private:
    static bool isBefore(const Bridging::MacVlanPair& a, const Bridging::MacVlanPair& b) {
        return std::pair(a.vlanId(), a.ethAddr()) < std::pair(b.vlanId(), b.ethAddr());
    }
    static std::set<ObjTuple> reach(const ObjTuple& from, const L2Rib::OutputObjects& objects) {
        std::set<ObjTuple> reach{from};
        std::vector<ObjTuple> todo{from};
        while (!todo.empty()) {
            const ObjTuple at = todo.back();
            todo.pop_back();
            for (const ObjTuple& next : objects.next(at)) {
                if (next.isValid() && reach.insert(next).second) todo.push_back(next);
            }
        }
        return reach;
    }
    std::map<ObjTuple, std::vector<Bridging::MacVlanPair>> users_;
};

template <class Table>
std::vector<Row> rowsOf(const Table& table, L2Rib::TableType type, const Users& users) {
    std::vector<Row> rows;
    for (const auto& record : table.records()) {
        const ObjTuple tuple(L2Rib::ObjId(record.key().value()), type);
        rows.push_back({tuple, record.sourceOtas(), users.of(tuple)});
    }
    std::sort(rows.begin(), rows.end(), [](const Row& a, const Row& b) { return a.tuple.objId() < b.tuple.objId(); });
    return rows;
}

std::string text(const Bridging::MacVlanPair& host) { return Quil::cat(host.vlanId(), "/", host.ethAddr()); }

void print(const std::vector<Row>& rows, const std::vector<std::string>& leadsTo, const char* what, bool details) {
    std::size_t width = 8;
    for (const auto& one : leadsTo) width = std::max(width, one.size());
    const int w = static_cast<int>(width);
    std::printf("%-20s  %-*s  Hosts  Source\n", "Object", w, "Leads to");
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const Row& row = rows[i];
        std::printf("%-20s  %-*s  %5zu  %s, its %s\n", Apps::nameOf(row.tuple).c_str(), w, leadsTo[i].c_str(),
                    row.hosts.size(), Apps::sourceName(row.sourceOtas.source()).c_str(),
                    Apps::nameOf(row.sourceOtas.objTuple()).c_str());
        for (const auto& host : row.hosts) {
            if (details) std::printf("  %s\n", text(host).c_str());
        }
    }
    std::printf("Total %zu %s%s\n", rows.size(), what, rows.size() == 1 ? "" : "s");
}

int show(const Options& options, L2Rib::TableType type, const char* what) {
    requireNoWords(options);
    HostTable hosts(options.root);
    hosts.mountReadable();
    const L2Rib::OutputObjects objects(hosts.em);
    if (!objects.isReadable()) throw Quil::SystemException("no tables of objects under " + options.root);
    const Users users(hosts, objects);
    const auto rows = type == L2Rib::tableTypeLoadBalance ? rowsOf(*objects.loadBalances(), type, users)
                      : type == L2Rib::tableTypeLabel     ? rowsOf(*objects.labels(), type, users)
                                                          : rowsOf(*objects.dests(), type, users);
    const auto names = Apps::InterfaceNames::readFrom(options.root);
    if (options.json) {
        Json all = Json::array();
        for (const Row& row : rows) {
            Json json = Apps::jsonOf(row.tuple, names, &objects);
            json.erase("type");
            json.update({{"source", Apps::sourceName(row.sourceOtas.source())},
                         {"sourceId", row.sourceOtas.objId().value()},
                         {"hosts", row.hosts.size()}});
            if (options.details) json["hostKeys"] = Json::array();
            for (const auto& host : row.hosts) {
                if (options.details) json["hostKeys"].push_back(text(host));
            }
            all.push_back(std::move(json));
        }
        std::cout << Apps::textOf(Json{{"schema", 1}, {"rows", all}, {"total", all.size()}}) << "\n";
    } else {
        std::vector<std::string> leadsTo;
        for (const Row& row : rows) leadsTo.push_back(Apps::contentsOf(row.tuple, names, objects));
        print(rows, leadsTo, what, options.details);
    }
    flushOutput();
    return rows.empty() ? exitNoMatch : exitFound;
}

}  // namespace

int lbShow(const Options& options) { return show(options, L2Rib::tableTypeLoadBalance, "group"); }
int labelShow(const Options& options) { return show(options, L2Rib::tableTypeLabel, "label"); }
int destShow(const Options& options) { return show(options, L2Rib::tableTypeDest, "destination"); }

}  // namespace Tool
