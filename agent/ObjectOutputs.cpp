#include "agent/ObjectOutputs.h"

#include <algorithm>

#include "agent/PutRow.h"

namespace Agent {

using namespace L2Rib;

namespace {

Quil::Ptr<ObjTupleManager> makeManager(TableType table) {
    return objTupleManagerFactory(table, Constants::objIdFirst.value(), Constants::objIdLast.value());
}

std::uint64_t& of(Identifiers& identifiers, TableType table) {
    return table == tableTypeLoadBalance ? identifiers.lb
           : table == tableTypeLabel     ? identifiers.label
                                         : identifiers.dest;
}

template <class F>
void forEachNext(const LoadBalanceAndSource& row, F&& visit) {
    const auto& members = row.lb().next();
    if (members.count() > LoadBalance::MemberArray::capacity) return;
    members.forEach([&](std::uint32_t, const ObjTuple& member) { visit(member); });
}
template <class F>
void forEachNext(const LabelAndSource& row, F&& visit) {
    visit(row.labelObj().next());
}
template <class F>
void forEachNext(const DestAndSource&, F&&) {}

}  // namespace

ObjectOutputs::ObjectOutputs(const Quil::Ptr<PolicySmStatus>& status, Keep keep)
    : loadBalances_(loadBalanceOutputFactory("lb")),
      labels_(labelOutputFactory("label")),
      dests_(destOutputFactory("dest")),
      lbManager_(makeManager(tableTypeLoadBalance)),
      labelManager_(makeManager(tableTypeLabel)),
      destManager_(makeManager(tableTypeDest)),
      keep_(std::move(keep)),
      status_(status) {}

ObjectOutputs::~ObjectOutputs() = default;

ObjTupleManager& ObjectOutputs::manager(TableType table) {
    return table == tableTypeLoadBalance ? *lbManager_ : table == tableTypeLabel ? *labelManager_ : *destManager_;
}

void ObjectOutputs::highestIs(TableType table, std::uint64_t id) {
    if (table == tableTypeLoadBalance) status_->maxLbIdIs(LoadBalanceId(id));
    if (table == tableTypeLabel) status_->maxLabelIdIs(LabelId(id));
    if (table == tableTypeDest) status_->maxDestIdIs(DestId(id));
}

template <class Table>
void ObjectOutputs::takeOver(const Table& table, TableType type, std::uint64_t reserved) {
    ObjTupleManager& mapping = manager(type);
    // What is not below the reserved ones is not ours; nor is what leaves no identifiers behind it.
    const std::uint64_t end = reserved != 0 ? reserved : mapping.last() - block;
    std::uint64_t highest = 0;
    for (const auto& row : table.records()) {
        const std::uint64_t id = row.key().value();
        if (id < end) highest = std::max(highest, id);
    }
    const std::uint64_t current = std::max({reserved, mapping.first(), highest + 1});
    mapping.currentIs(current);
    of(reserved_, type) = current;
    highestIs(type, highest);
    for (const auto& row : table.records()) {
        forEachNext(row, [this](const ObjTuple& next) { use(next); });
    }
    for (const auto& row : table.records()) takeOver({ObjId(row.key().value()), type}, row.sourceOtas());
}

void ObjectOutputs::takeOver(const ObjTuple& tuple, const ObjTupleAndSource& object) {
    ObjTupleManager& mapping = manager(tuple.tableType());
    const bool isOurs = tuple.isValid() && object.objTuple().isValid() &&
                        object.objTuple().tableType() == tuple.tableType() && tuple.objId().value() < mapping.current();
    const ObjTuple other = mapping.inputToOutput(object);
    // Of two rows of one object the older one was about to go.
    if (isOurs && other.objId() < tuple.objId()) {
        if (unclaimed_.erase(other) > 0) mapping.delOutputOt(other);
        mapping.restoreMapping(object, tuple);
        unclaimed_.insert(tuple);
    }
    doom(tuple);
}

void ObjectOutputs::takeOver(const Identifiers& reserved, const HostOutput& hosts) {
    for (const auto& host : hosts.hosts()) use(host.host().next());
    takeOver(*loadBalances_, tableTypeLoadBalance, reserved.lb);
    takeOver(*labels_, tableTypeLabel, reserved.label);
    takeOver(*dests_, tableTypeDest, reserved.dest);
}

ObjTuple ObjectOutputs::tupleFor(const ObjTupleAndSource& object) {
    ObjTupleManager& mapping = manager(object.objTuple().tableType());
    const ObjTuple earlier = mapping.inputToOutput(object);
    if (unclaimed_.erase(earlier) > 0) return earlier;
    reserve(mapping.tableType());
    const ObjTuple fresh = mapping.newOutputOt(object);
    highestIs(fresh.tableType(), fresh.objId().value());
    return fresh;
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

template <class Table>
void ObjectOutputs::putCounted(Table& table, const typename Table::Record& row) {
    typename Table::Record before;
    const bool wasThere = table.record(row.key(), before);
    if (wasThere && isSameRow(before, row)) return;
    table.recordIs(row);
    forEachNext(row, [this](const ObjTuple& next) { use(next); });
    if (wasThere) forEachNext(before, [this](const ObjTuple& next) { unuse(next); });
}

void ObjectOutputs::put(const LoadBalanceAndSource& row) { putCounted(*loadBalances_, row); }
void ObjectOutputs::put(const LabelAndSource& row) { putCounted(*labels_, row); }
void ObjectOutputs::put(const DestAndSource& row) { putCounted(*dests_, row); }

template <class Table>
void ObjectOutputs::remove(Table& table, const typename Table::Key& key) {
    const auto gone = table.recordDel(key);
    forEachNext(gone, [this](const ObjTuple& next) { unuse(next); });
}

void ObjectOutputs::hostLeads(const ObjTuple& now, const ObjTuple& before) {
    if (now == before) return;
    use(now);
    unuse(before);
}

void ObjectOutputs::use(const ObjTuple& tuple) {
    if (!isObject(tuple)) return;
    ++users_[tuple];
    if (removable_.erase(tuple) + leftOver_.erase(tuple) > 0) doomed_.insert(tuple);
}

void ObjectOutputs::unuse(const ObjTuple& tuple) {
    const auto users = users_.find(tuple);
    if (users == users_.end() || --users->second > 0) return;
    users_.erase(users);
    if (doomed_.erase(tuple) > 0) doom(tuple);
}

ObjectOutputs::Tuples& ObjectOutputs::setFor(const ObjTuple& doomed) {
    return users_.contains(doomed) ? doomed_ : unclaimed_.contains(doomed) ? leftOver_ : removable_;
}

void ObjectOutputs::doom(const ObjTuple& tuple) { setFor(tuple).insert(tuple); }

void ObjectOutputs::spare(const ObjTuple& tuple) {
    for (Tuples* tuples : {&doomed_, &removable_, &leftOver_}) tuples->erase(tuple);
}

bool ObjectOutputs::removeDoomed(bool isIdle) {
    Tuples& tuples = isIdle && removable_.empty() ? leftOver_ : removable_;
    if (tuples.empty()) return false;
    const ObjTuple tuple = *tuples.begin();
    if (tuple.tableType() == tableTypeLoadBalance) remove(*loadBalances_, LoadBalanceId(tuple.objId().value()));
    if (tuple.tableType() == tableTypeLabel) remove(*labels_, LabelId(tuple.objId().value()));
    if (tuple.tableType() == tableTypeDest) remove(*dests_, DestId(tuple.objId().value()));
    tuples.erase(tuple);
    if (unclaimed_.erase(tuple) > 0) manager(tuple.tableType()).delOutputOt(tuple);
    return true;
}

}  // namespace Agent
