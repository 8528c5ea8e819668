// ObjectOutputs: the output tables of load-balance groups, labels and destinations, and who has which identifier in
// them.
#pragma once

#include <functional>
#include <set>
#include <unordered_map>

#include "L2Rib/AgentStatus.h"
#include "L2Rib/DestOutput.h"
#include "L2Rib/HostOutput.h"
#include "L2Rib/LabelOutput.h"
#include "L2Rib/LoadBalanceOutput.h"
#include "L2Rib/ObjTupleManager.h"

namespace Agent {

// Up to which identifiers may have been handed out, of each table; these excluded.
struct Identifiers {
    std::uint64_t lb = 0, label = 0, dest = 0;
};

// Identifiers are never used twice, not even after a restart: they are reserved in blocks, and the reservation is kept
// before the first of a block is used, since the row that had the highest one may be gone when the agent is started
// again.
//
// Errors    What keeping a reservation throws: then nothing is handed out.
class ObjectOutputs {
 public:
    using Keep = std::function<void(const Identifiers&)>;

    // The highest identifiers are told to status.
    explicit ObjectOutputs(
        const Quil::Ptr<L2Rib::PolicySmStatus>& status, Keep keep = [](const Identifiers&) {});
    ~ObjectOutputs();

    const Quil::Ptr<L2Rib::LoadBalanceOutput>& loadBalances() const { return loadBalances_; }
    const Quil::Ptr<L2Rib::LabelOutput>& labels() const { return labels_; }
    const Quil::Ptr<L2Rib::DestOutput>& dests() const { return dests_; }
    // Of a table that is not the invalid one.
    L2Rib::ObjTupleManager& manager(L2Rib::TableType table);

    // The tables hold what an earlier process left: what it had mapped stays mapped. Rows that no source claims go when
    // nothing leads to them any more. reserved: all 0 where that is not known.
    void takeOver(const Identifiers& reserved, const L2Rib::HostOutput& hosts);
    // The output tuple of a source's object: the one that an earlier process gave it, or a new one.
    L2Rib::ObjTuple tupleFor(const L2Rib::ObjTupleAndSource& object);
    // The object is no more, nor is anything of its source that leads to it.
    void release(const L2Rib::ObjTuple& tuple);
    // Writes the row unless the table holds the same.
    void put(const L2Rib::LoadBalanceAndSource& row);
    void put(const L2Rib::LabelAndSource& row);
    void put(const L2Rib::DestAndSource& row);
    // An output host leads to this now, and no longer to that.
    void hostLeads(const L2Rib::ObjTuple& now, const L2Rib::ObjTuple& before);
    // A row that is to go when no row of the output leads to it any more; and one that stays after all.
    void doom(const L2Rib::ObjTuple& tuple);
    void spare(const L2Rib::ObjTuple& tuple);
    // Removes one of those that can go; false when there is none. isIdle: every source has claimed what is its own.
    bool removeDoomed(bool isIdle);
    bool canRemove() const { return !removable_.empty() || !leftOver_.empty(); }

 private:
    using Users = std::unordered_map<L2Rib::ObjTuple, std::uint64_t, L2Rib::HashOf<L2Rib::ObjTuple>>;
    struct ByTable {  // groups before labels before destinations: what leads to others first
        bool operator()(const L2Rib::ObjTuple& a, const L2Rib::ObjTuple& b) const {
            return a.tableType() != b.tableType() ? a.tableType() < b.tableType() : a.objId() < b.objId();
        }
    };
    using Tuples = std::set<L2Rib::ObjTuple, ByTable>;
    static constexpr std::uint64_t block = 1024;

    Tuples& setFor(const L2Rib::ObjTuple& doomed);

    template <class Table>
    void putCounted(Table& table, const typename Table::Record& row);
    template <class Table>
    void remove(Table& table, const typename Table::Key& key);
    void use(const L2Rib::ObjTuple& tuple);
    void unuse(const L2Rib::ObjTuple& tuple);
    void reserve(L2Rib::TableType table);
    void highestIs(L2Rib::TableType table, std::uint64_t id);
    template <class Table>
    void takeOver(const Table& table, L2Rib::TableType type, std::uint64_t reserved);
    void takeOver(const L2Rib::ObjTuple& tuple, const L2Rib::ObjTupleAndSource& object);

    const Quil::Ptr<L2Rib::LoadBalanceOutput> loadBalances_;
    const Quil::Ptr<L2Rib::LabelOutput> labels_;
    const Quil::Ptr<L2Rib::DestOutput> dests_;
    const Quil::Ptr<L2Rib::ObjTupleManager> lbManager_, labelManager_, destManager_;
    const Keep keep_;
    Identifiers reserved_;
    const Quil::Ptr<L2Rib::PolicySmStatus> status_;
    Users users_;  // how many rows of the output lead to each object
    // To go: those that something leads to, those that can go, and, of an earlier process, those that can go when
    // nobody claims them.
    Tuples doomed_, removable_, leftOver_;
    Tuples unclaimed_;  // mapped by an earlier process
};

}  // namespace Agent
