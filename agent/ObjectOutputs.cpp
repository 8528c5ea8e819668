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

std::uint64_t& of(Identifiers& identifiers, TableType table) {
    return table == tableTypeLoadBalance ? identifiers.lb
           : table == tableTypeLabel     ? identifiers.label
                                         : identifiers.dest;
}

}  // namespace

ObjectOutputs::ObjectOutputs(const Quil::Ptr<PolicySmStatus>& status, Keep keep)
    : loadBalances_(loadBalanceOutputFactory("lb")),
      labels_(labelOutputFactory("label")),
      dests_(destOutputFactory("dest")),
      lbManager_(makeManager(tableTypeLoadBalance)),
      labelManager_(makeManager(tableTypeLabel)),
      destManager_(makeManager(tableTypeDest)),
      keep_(std::move(keep)),
      maxima_(std::make_unique<Maxima>(*this, status)) {}

ObjectOutputs::~ObjectOutputs() = default;

ObjTupleManager& ObjectOutputs::manager(TableType table) {
    return table == tableTypeLoadBalance ? *lbManager_ : table == tableTypeLabel ? *labelManager_ : *destManager_;
}

template <class Table>
void ObjectOutputs::takeOver(const Table& table, TableType type, std::uint64_t reserved) {
    ObjTupleManager& mapping = manager(type);
    std::uint64_t current = std::max(reserved, mapping.first());
    for (const auto& row : table.records()) {
        if (row.key().value() < mapping.last()) current = std::max(current, row.key().value() + 1);
    }
    mapping.currentIs(current);
    of(reserved_, type) = current;
    for (const auto& row : table.records()) takeOver({ObjId(row.key().value()), type}, row.sourceOtas());
}

void ObjectOutputs::takeOver(const ObjTuple& tuple, const ObjTupleAndSource& object) {
    ObjTupleManager& mapping = manager(tuple.tableType());
    doom(tuple);
    const bool isOurs = object.objTuple().isValid() && object.objTuple().tableType() == tuple.tableType() &&
                        tuple.objId().value() < mapping.current();
    const ObjTuple other = mapping.inputToOutput(object);
    // Of two rows of one object the older one was about to go.
    if (!isOurs || tuple.objId() < other.objId()) return;
    if (unclaimed_.erase(other) > 0) mapping.delOutputOt(other);
    mapping.restoreMapping(object, tuple);
    unclaimed_.insert(tuple);
}

void ObjectOutputs::takeOver(const Identifiers& reserved) {
    takeOver(*loadBalances_, tableTypeLoadBalance, reserved.lb);
    takeOver(*labels_, tableTypeLabel, reserved.label);
    takeOver(*dests_, tableTypeDest, reserved.dest);
}

ObjTuple ObjectOutputs::tupleFor(const ObjTupleAndSource& object) {
    ObjTupleManager& mapping = manager(object.objTuple().tableType());
    const ObjTuple earlier = mapping.inputToOutput(object);
    if (unclaimed_.erase(earlier) > 0) return earlier;
    reserve(mapping.tableType());
    return mapping.newOutputOt(object);
}

void ObjectOutputs::reserve(TableType table) {
    Identifiers wanted = reserved_;
    std::uint64_t& end = of(wanted, table);
    if (manager(table).current() < end) return;
    end = manager(table).current() + block;
    keep_(wanted);
    reserved_ = wanted;
}

void ObjectOutputs::release(const ObjTuple& tuple) {
    doom(tuple);
    manager(tuple.tableType()).delOutputOt(tuple);
}

bool ObjectOutputs::removeDoomed() {
    if (doomed_.empty()) return false;
    const ObjTuple tuple = *doomed_.begin();
    remove(tuple);
    doomed_.erase(tuple);
    if (unclaimed_.erase(tuple) > 0) manager(tuple.tableType()).delOutputOt(tuple);
    return true;
}

void ObjectOutputs::remove(const ObjTuple& tuple) {
    if (tuple.tableType() == tableTypeLoadBalance) loadBalances_->lbDel(tuple.lbId());
    if (tuple.tableType() == tableTypeLabel) labels_->labelDel(tuple.labelId());
    if (tuple.tableType() == tableTypeDest) dests_->destDel(tuple.destId());
}

}  // namespace Agent
