#include "L2Rib/OutputObjects.h"

#include <algorithm>

#include "L2Rib/TableInfo.h"

namespace L2Rib {
namespace {

constexpr const char* output = "l2rib/output";

}  // namespace

template <class Output>
struct OutputObjects::Watcher : Output::NotifieeBase {
    OutputObjects& objects;
    Watcher(OutputObjects& o, const Quil::Ptr<Output>& table) : objects(o) { this->notifierIs(table); }
    void fwkOnKey(const typename Output::Key& key) override { objects.changed(objTupleOf(key)); }
    void fwkOnImmediateCollection() override {}  // what differs is told key by key
};

OutputObjects::OutputObjects(Corestore::EntityManager& em, std::function<void(const HostKey&)> onHost)
    : NotifieeConst(em.loop().clock()),
      onHost_(std::move(onHost)),
      loadBalances_(
          em.mountedIs(output, loadBalanceOutputFactory("lb"), TableInfo().loadBalanceOutputInfo(QuilMemtab::reader))),
      labels_(em.mountedIs(output, labelOutputFactory("label"), TableInfo().labelOutputInfo(QuilMemtab::reader))),
      dests_(em.mountedIs(output, destOutputFactory("dest"), TableInfo().destOutputInfo(QuilMemtab::reader))) {
    if (!onHost_) return;
    lbWatcher_ = std::make_unique<Watcher<LoadBalanceOutput>>(*this, loadBalances_);
    labelWatcher_ = std::make_unique<Watcher<LabelOutput>>(*this, labels_);
    destWatcher_ = std::make_unique<Watcher<DestOutput>>(*this, dests_);
}

OutputObjects::~OutputObjects() = default;

bool OutputObjects::isReadable() const {
    return loadBalances_->lbControl().isReadable() && labels_->labelControl().isReadable() &&
           dests_->destControl().isReadable();
}

std::vector<ObjTuple> OutputObjects::next(const ObjTuple& tuple) const {
    std::vector<ObjTuple> next;
    if (tuple.tableType() == tableTypeLoadBalance) {
        LoadBalanceAndSource group;
        if (!loadBalances_->lb(tuple.lbId(), group)) return next;
        const auto& members = group.lb().next();
        if (members.count() > LoadBalance::MemberArray::capacity) return next;
        members.forEach([&](std::uint32_t, const ObjTuple& member) { next.push_back(member); });
    } else if (tuple.tableType() == tableTypeLabel) {
        LabelAndSource label;
        if (labels_->label(tuple.labelId(), label)) next.push_back(label.labelObj().next());
    }
    return next;
}

std::vector<Dest> OutputObjects::dests(const ObjTuple& tuple) const {
    std::vector<Dest> found;
    std::set<ObjTuple> seen;
    std::vector<ObjTuple> todo{tuple};
    while (!todo.empty() && seen.size() < maxObjects) {
        const ObjTuple at = todo.back();
        todo.pop_back();
        if (!isObject(at) || !seen.insert(at).second) continue;
        if (at.tableType() == tableTypeDest) {
            DestAndSource dest;
            if (dests_->dest(at.destId(), dest)) found.push_back(dest.dest());
        } else {
            const auto members = next(at);
            todo.insert(todo.end(), members.rbegin(), members.rend());
        }
    }
    return found;
}

void OutputObjects::hostIs(const HostKey& host, const ObjTuple& next) {
    const auto known = hostNext_.find(host);
    const ObjTuple before = known == hostNext_.end() ? ObjTuple() : known->second;
    if (before == next) return;
    if (isObject(next)) {
        hostNext_[host] = next;
        nodeIs(next).hosts.insert(host);
    } else if (known != hostNext_.end()) {
        hostNext_.erase(known);
    }
    if (!isObject(before)) return;
    nodes_.at(before).hosts.erase(host);
    releaseIfUnused(before);
}

OutputObjects::Node& OutputObjects::nodeIs(const ObjTuple& tuple) {
    const auto [at, isNew] = nodes_.try_emplace(tuple);
    if (isNew) relink(tuple);
    return at->second;
}

// Takes what the object leads to now. What that leads to in turn is taken when it is first seen; by rows, since a chain
// may be long.
void OutputObjects::relink(const ObjTuple& tuple) {
    std::vector<ObjTuple> todo{tuple};
    while (!todo.empty()) {
        const ObjTuple at = todo.back();
        todo.pop_back();
        const auto node = nodes_.find(at);
        if (node == nodes_.end()) continue;  // released, in a circle
        std::vector<ObjTuple> before = next(at);
        before.swap(node->second.next);
        const std::vector<ObjTuple> now = node->second.next;
        for (const ObjTuple& child : now) {
            if (!isObject(child)) continue;
            const auto [found, isNew] = nodes_.try_emplace(child);
            found->second.parents.insert(at);
            if (isNew) todo.push_back(child);
        }
        for (const ObjTuple& child : before) {
            if (!isObject(child) || std::find(now.begin(), now.end(), child) != now.end()) continue;
            const auto gone = nodes_.find(child);
            if (gone == nodes_.end()) continue;
            gone->second.parents.erase(at);
            releaseIfUnused(child);
        }
    }
}

void OutputObjects::releaseIfUnused(const ObjTuple& tuple) {
    std::vector<ObjTuple> todo{tuple};
    while (!todo.empty()) {
        const auto at = nodes_.find(todo.back());
        todo.pop_back();
        if (at == nodes_.end() || !at->second.parents.empty() || !at->second.hosts.empty()) continue;
        const auto gone = nodes_.extract(at);
        for (const ObjTuple& child : gone.mapped().next) {
            const auto found = nodes_.find(child);
            if (found == nodes_.end()) continue;
            found->second.parents.erase(gone.key());
            todo.push_back(child);
        }
    }
}

void OutputObjects::changed(const ObjTuple& tuple) {
    if (!nodes_.contains(tuple)) return;
    relink(tuple);
    std::set<ObjTuple> seen;
    std::vector<ObjTuple> todo{tuple};
    while (!todo.empty()) {
        const ObjTuple at = todo.back();
        todo.pop_back();
        const auto node = nodes_.find(at);
        if (node == nodes_.end() || !seen.insert(at).second) continue;
        walks_.add(at, node->second);
        todo.insert(todo.end(), node->second.parents.begin(), node->second.parents.end());
    }
    if (!walks_.isEmpty() && wakeupTime() > clock().now()) wakeupTimeIs(clock().now());
}

void OutputObjects::onTime() {
    const Quil::Seconds end = clock().now() + quantum;
    while (walks_.step(nodes_, onHost_)) {
        if (clock().now() >= end) return wakeupTimeIs(clock().now());
    }
}

}  // namespace L2Rib
