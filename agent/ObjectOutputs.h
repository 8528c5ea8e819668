// ObjectOutputs: the output tables of load-balance groups, labels and destinations, and who has which identifier in
// them.
#pragma once

#include <functional>
#include <memory>
#include <set>

#include "L2Rib/AgentStatus.h"
#include "L2Rib/DestOutput.h"
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
    // no host leads to them any more.
    void takeOver(const Identifiers& reserved);
    // The output tuple of a source's object: the one that an earlier process gave it, or a new one.
    L2Rib::ObjTuple tupleFor(const L2Rib::ObjTupleAndSource& object);
    // The object is no more, nor is anything that leads to it.
    void release(const L2Rib::ObjTuple& tuple);
    // A row that is to go when no host leads to it any more; and one that stays after all.
    void doom(const L2Rib::ObjTuple& tuple) { doomed_.insert(tuple); }
    void spare(const L2Rib::ObjTuple& tuple) { doomed_.erase(tuple); }
    // Removes one of those; false when there is none.
    bool removeDoomed();
    bool hasDoomed() const { return !doomed_.empty(); }

 private:
    class Maxima;
    struct ByTable {  // groups before labels before destinations: what leads to others first
        bool operator()(const L2Rib::ObjTuple& a, const L2Rib::ObjTuple& b) const {
            return a.tableType() != b.tableType() ? a.tableType() < b.tableType() : a.objId() < b.objId();
        }
    };
    static constexpr std::uint64_t block = 1024;

    void remove(const L2Rib::ObjTuple& tuple);
    void reserve(L2Rib::TableType table);
    template <class Table>
    void takeOver(const Table& table, L2Rib::TableType type, std::uint64_t reserved);
    void takeOver(const L2Rib::ObjTuple& tuple, const L2Rib::ObjTupleAndSource& object);

    const Quil::Ptr<L2Rib::LoadBalanceOutput> loadBalances_;
    const Quil::Ptr<L2Rib::LabelOutput> labels_;
    const Quil::Ptr<L2Rib::DestOutput> dests_;
    const Quil::Ptr<L2Rib::ObjTupleManager> lbManager_, labelManager_, destManager_;
    const Keep keep_;
    Identifiers reserved_;
    std::set<L2Rib::ObjTuple, ByTable> doomed_;
    std::set<L2Rib::ObjTuple, ByTable> unclaimed_;  // mapped by an earlier process
    std::unique_ptr<Maxima> maxima_;
};

}  // namespace Agent
