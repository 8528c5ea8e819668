// ObjectOutputs: the output tables of load-balance groups, labels and destinations, and who has which identifier in
// them.
#pragma once

#include <memory>
#include <set>

#include "L2Rib/AgentStatus.h"
#include "L2Rib/DestOutput.h"
#include "L2Rib/LabelOutput.h"
#include "L2Rib/LoadBalanceOutput.h"
#include "L2Rib/ObjTupleManager.h"

namespace Agent {

class ObjectOutputs {
 public:
    // The highest identifiers are told to status.
    explicit ObjectOutputs(const Quil::Ptr<L2Rib::PolicySmStatus>& status);
    ~ObjectOutputs();

    const Quil::Ptr<L2Rib::LoadBalanceOutput>& loadBalances() const { return loadBalances_; }
    const Quil::Ptr<L2Rib::LabelOutput>& labels() const { return labels_; }
    const Quil::Ptr<L2Rib::DestOutput>& dests() const { return dests_; }
    // Of a table that is not the invalid one.
    L2Rib::ObjTupleManager& manager(L2Rib::TableType table);

    // The tables hold what an earlier process left: its rows go when no host leads to them any more, and its
    // identifiers are not used again.
    void takeOver();
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
    void remove(const L2Rib::ObjTuple& tuple);
    template <class Table>
    void takeOver(const Table& table, L2Rib::TableType type);

    const Quil::Ptr<L2Rib::LoadBalanceOutput> loadBalances_;
    const Quil::Ptr<L2Rib::LabelOutput> labels_;
    const Quil::Ptr<L2Rib::DestOutput> dests_;
    const Quil::Ptr<L2Rib::ObjTupleManager> lbManager_, labelManager_, destManager_;
    std::set<L2Rib::ObjTuple, ByTable> doomed_;
    std::unique_ptr<Maxima> maxima_;
};

}  // namespace Agent
