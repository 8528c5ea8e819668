#include "agent/ObjectOutputs.h"

#include <algorithm>
#include <functional>

namespace Agent {

using namespace L2Rib;

// Tells the status what each manager has handed out last.
class ObjectOutputs::Maxima {
 public:
    Maxima(ObjectOutputs& outputs, const Quil::Ptr<PolicySmStatus>& status)
        : status_(status),
          lb_(outputs.lbManager_, [this](std::uint64_t id) { status_->maxLbIdIs(LoadBalanceId(id)); }),
          label_(outputs.labelManager_, [this](std::uint64_t id) { status_->maxLabelIdIs(LabelId(id)); }),
          dest_(outputs.destManager_, [this](std::uint64_t id) { status_->maxDestIdIs(DestId(id)); }) {}

 private:
    struct Watcher : ObjTupleManager::NotifieeConst {
        std::function<void(std::uint64_t)> tell;
        Watcher(const Quil::Ptr<ObjTupleManager>& manager, std::function<void(std::uint64_t)> t) : tell(std::move(t)) {
            notifierIs(manager);
        }
        void onCurrent() override { tell(notifier()->current() - 1); }
    };
    const Quil::Ptr<PolicySmStatus> status_;
    Watcher lb_, label_, dest_;
};

namespace {

Quil::Ptr<ObjTupleManager> makeManager(TableType table) {
    return objTupleManagerFactory(table, Constants::objIdFirst.value(), Constants::objIdLast.value());
}

}  // namespace

ObjectOutputs::ObjectOutputs(const Quil::Ptr<PolicySmStatus>& status)
    : loadBalances_(loadBalanceOutputFactory("lb")),
      labels_(labelOutputFactory("label")),
      dests_(destOutputFactory("dest")),
      lbManager_(makeManager(tableTypeLoadBalance)),
      labelManager_(makeManager(tableTypeLabel)),
      destManager_(makeManager(tableTypeDest)),
      maxima_(std::make_unique<Maxima>(*this, status)) {}

ObjectOutputs::~ObjectOutputs() = default;

ObjTupleManager& ObjectOutputs::manager(TableType table) {
    return table == tableTypeLoadBalance ? *lbManager_ : table == tableTypeLabel ? *labelManager_ : *destManager_;
}

template <class Table>
void ObjectOutputs::takeOver(const Table& table, TableType type) {
    std::uint64_t next = manager(type).current();
    for (const auto& row : table.records()) {
        const std::uint64_t id = row.key().value();
        doom({ObjId(id), type});
        next = std::max(next, id + 1);
    }
    manager(type).currentIs(next);
}

void ObjectOutputs::takeOver() {
    takeOver(*loadBalances_, tableTypeLoadBalance);
    takeOver(*labels_, tableTypeLabel);
    takeOver(*dests_, tableTypeDest);
}

bool ObjectOutputs::removeDoomed() {
    if (doomed_.empty()) return false;
    remove(*doomed_.begin());
    doomed_.erase(doomed_.begin());
    return true;
}

void ObjectOutputs::remove(const ObjTuple& tuple) {
    if (tuple.tableType() == tableTypeLoadBalance) loadBalances_->lbDel(tuple.lbId());
    if (tuple.tableType() == tableTypeLabel) labels_->labelDel(tuple.labelId());
    if (tuple.tableType() == tableTypeDest) dests_->destDel(tuple.destId());
}

}  // namespace Agent
