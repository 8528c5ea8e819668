#include "agent/ObjectGraph.h"

#include <algorithm>

#include "Quil/Trace.h"

namespace Agent {

using namespace L2Rib;

ObjectGraph::ObjectGraph(Source source, const ObjectTables& tables, ObjectOutputs& outputs,
                         std::function<void(const HostKey&)> onHost, std::function<void()> kick)
    : source_(source),
      tables_(tables),
      outputs_(outputs),
      onHost_(std::move(onHost)),
      kick_(std::move(kick)),
      loadBalances_(tables.loadBalances, kick_),
      labels_(tables.labels, kick_),
      dests_(tables.dests, kick_) {}

ObjectGraph::~ObjectGraph() {
    for (const auto& [tuple, node] : nodes_) outputs_.release(node.output);
}

ObjTuple ObjectGraph::hostNextIs(const HostKey& host, const ObjTuple& next) {
    const auto known = hostNext_.find(host);
    const ObjTuple before = known == hostNext_.end() ? ObjTuple() : known->second;
    if (!(before == next)) {
        if (isObject(next)) {
            nodeIs(next).hosts.insert(host);  // before anything is changed: it may fail
            hostNext_[host] = next;
        } else if (known != hostNext_.end()) {
            hostNext_.erase(known);
        }
        if (const auto left = nodes_.find(before); left != nodes_.end()) {
            left->second.hosts.erase(host);
            releaseIfUnused(before);
        }
        loadNow();
    }
    return outputOf(next);
}

Lanx::IpGenAddr ObjectGraph::lowestVtep(const ObjTuple& tuple) const {
    const Node* found = node(tuple);
    return found && found->resolves ? found->lowestVtep : Lanx::IpGenAddr();
}

std::size_t ObjectGraph::numWaitingHosts() const {
    std::size_t count = 0;
    for (const auto& [tuple, node] : nodes_) count += node.resolves ? 0 : node.hosts.size();
    return count;
}

void ObjectGraph::isWholeIs(bool isWhole) {
    if (std::exchange(isWhole_, isWhole) == isWhole || !isWhole) return;
    for (const auto& [tuple, unused] : nodes_) changed(tuple);
}

void ObjectGraph::changed(const ObjTuple& tuple) {
    if (tuple.tableType() == tableTypeLoadBalance) loadBalances_.mark(tuple.lbId());
    if (tuple.tableType() == tableTypeLabel) labels_.mark(tuple.labelId());
    if (tuple.tableType() == tableTypeDest) dests_.mark(tuple.destId());
}

bool ObjectGraph::isSettled() const {
    return toLoad_.isEmpty() && toEvaluate_.isEmpty() && toReview_.isEmpty() && walks_.isEmpty() &&
           loadBalances_.isEmpty() && labels_.isEmpty() && dests_.isEmpty();
}

bool ObjectGraph::step() {
    if (loadStep()) return true;
    if (toReview_.step([this](const ObjTuple& tuple) { evaluate(tuple); })) return true;
    const auto take = [this](const auto& id) {
        const ObjTuple tuple = objTupleOf(id);
        if (!isObject(tuple)) return;
        nodeIs(tuple);
        load(tuple);
        loadNow();
    };
    return dests_.step(take) || labels_.step(take) || loadBalances_.step(take) || walks_.step(nodes_, onHost_);
}

bool ObjectGraph::loadStep() {
    return toLoad_.step([this](const ObjTuple& tuple) { load(tuple); }) ||
           toEvaluate_.step([this](const ObjTuple& tuple) { evaluate(tuple); });
}

// What a reference has brought up, and what that leads to, so that a host whose objects are there is not held up. The
// rest of a long chain is left to the steps.
void ObjectGraph::loadNow() {
    try {
        for (int i = 0; i < loadedAtOnce && !toLoad_.isEmpty(); ++i) loadStep();
        for (int i = 0; i < loadedAtOnce && toLoad_.isEmpty() && !toEvaluate_.isEmpty(); ++i) loadStep();
    } catch (const Quil::Exception&) {
        kick_();  // it may be another's object that fails: the steps try it again, and say so
    }
}

ObjectGraph::Node& ObjectGraph::nodeIs(const ObjTuple& tuple) {
    const auto [at, isNew] = nodes_.try_emplace(tuple);
    if (isNew) {
        try {
            at->second.output = outputs_.tupleFor({tuple, source_});
        } catch (...) {
            nodes_.erase(at);
            throw;
        }
        toLoad_.add(tuple);
    }
    return at->second;
}

const ObjectGraph::Node* ObjectGraph::node(const ObjTuple& tuple) const {
    const auto found = nodes_.find(tuple);
    return found == nodes_.end() ? nullptr : &found->second;
}

ObjTuple ObjectGraph::outputOf(const ObjTuple& tuple) const {
    const Node* found = node(tuple);
    return found && found->resolves ? found->output : ObjTuple();
}

bool ObjectGraph::readRow(const ObjTuple& tuple, Node& into) const {
    into.next.clear();
    switch (tuple.tableType()) {
        case tableTypeLoadBalance: {
            LoadBalance row;
            if (!tables_.loadBalances->lb(tuple.lbId(), row)) return false;
            if (row.next().count() > LoadBalance::MemberArray::capacity) return true;
            row.next().forEach([&](std::uint32_t, const ObjTuple& member) { into.next.push_back(member); });
            return true;
        }
        case tableTypeLabel: {
            Label row;
            if (!tables_.labels->label(tuple.labelId(), row)) return false;
            into.label = row.label();
            into.next.push_back(row.next());
            return true;
        }
        default:
            return tables_.dests->dest(tuple.destId(), into.dest);
    }
}

// Takes the object's row as it is now.
void ObjectGraph::load(const ObjTuple& tuple) {
    const auto at = nodes_.find(tuple);
    if (at == nodes_.end()) return;
    Node& node = at->second;
    Node row;
    const bool isPresent = readRow(tuple, row);
    if (!isPresent && !isWhole_ && node.isPresent) return;
    for (const ObjTuple& child : row.next) {
        if (isObject(child)) nodeIs(child);  // before anything is changed: it may fail
    }
    node.isPresent = isPresent;
    node.label = row.label;
    node.dest = row.dest;
    node.next.swap(row.next);
    relink(tuple, row.next);
    toEvaluate_.add(tuple);
    toReview_.addAll(refused_);                                                                // a circle may be broken
    if (const Reach reach = reachOf(tuple); reach.isCircular) toReview_.addAll(reach.behind);  // all that are on it
    kick_();
}

void ObjectGraph::relink(const ObjTuple& tuple, const std::vector<ObjTuple>& before) {
    const std::vector<ObjTuple> now = nodes_.at(tuple).next;
    for (const ObjTuple& child : now) {
        if (isObject(child)) nodeIs(child).parents.insert(tuple);
    }
    for (const ObjTuple& child : before) {
        if (!isObject(child) || std::find(now.begin(), now.end(), child) != now.end()) continue;
        const auto gone = nodes_.find(child);
        if (gone == nodes_.end()) continue;  // named twice, and released
        gone->second.parents.erase(tuple);
        releaseIfUnused(child);
    }
}

// The objects behind this one; whether it is among them, or they are too many.
ObjectGraph::Reach ObjectGraph::reachOf(const ObjTuple& tuple) const {
    Reach reach;
    std::vector<ObjTuple> todo{tuple};
    while (!todo.empty()) {
        const Node* at = node(todo.back());
        todo.pop_back();
        if (!at) continue;
        for (const ObjTuple& child : at->next) {
            if (child == tuple || reach.behind.size() > maxReach) reach.isCircular = true;
            if (isObject(child) && reach.behind.size() <= maxReach && reach.behind.insert(child).second) {
                todo.push_back(child);
            }
        }
    }
    return reach;
}

bool ObjectGraph::leadsSomewhere(const ObjTuple& tuple, const Node& node) const {
    if (tuple.tableType() == tableTypeDest) return true;
    return std::any_of(node.next.begin(), node.next.end(),
                       [&](const ObjTuple& child) { return !(outputOf(child) == ObjTuple()); });
}

Lanx::IpGenAddr ObjectGraph::lowestVtepBehind(const ObjTuple& tuple, const Node& node) const {
    if (tuple.tableType() == tableTypeDest) {
        return node.dest.destType() == destTypeVxlan ? node.dest.vxlan().vtepAddr() : Lanx::IpGenAddr();
    }
    Lanx::IpGenAddr lowest;
    for (const ObjTuple& child : node.next) {
        const Lanx::IpGenAddr vtep = lowestVtep(child);
        if (vtep == Lanx::IpGenAddr()) continue;
        if (lowest == Lanx::IpGenAddr() || vtep < lowest) lowest = vtep;
    }
    return lowest;
}

void ObjectGraph::evaluate(const ObjTuple& tuple) {
    const auto at = nodes_.find(tuple);
    if (at == nodes_.end()) return;
    Node& node = at->second;
    refusedIs(tuple, node, node.isPresent && reachOf(tuple).isCircular);
    const bool resolves = node.isPresent && !node.isRefused && leadsSomewhere(tuple, node);
    if (resolves) {
        write(tuple, node);
        outputs_.spare(node.output);
    } else if (node.resolves) {
        outputs_.doom(node.output);
    }
    const Lanx::IpGenAddr vtep = resolves ? lowestVtepBehind(tuple, node) : Lanx::IpGenAddr();
    const bool isOther = node.resolves != resolves || !(node.lowestVtep == vtep);
    node.resolves = resolves;
    node.lowestVtep = vtep;
    if (isOther) {
        toEvaluate_.addAll(node.parents);
        walks_.add(tuple, node);
    }
    kick_();
    releaseIfUnused(tuple);
}

void ObjectGraph::refusedIs(const ObjTuple& tuple, Node& node, bool isRefused) {
    if (std::exchange(node.isRefused, isRefused) == isRefused) return;
    isRefused ? void(refused_.insert(tuple)) : void(refused_.erase(tuple));
    static Quil::Trace& trace = Quil::Trace::handler("Agent");
    trace.log(3, [&] {
        return Quil::cat(ObjTupleAndSource(tuple, source_),
                         isRefused ? " leads back to itself: refused" : " leads back to itself no more");
    });
}

void ObjectGraph::write(const ObjTuple& tuple, const Node& node) {
    const ObjTupleAndSource otas(tuple, source_);
    if (tuple.tableType() == tableTypeLoadBalance) {
        LoadBalance group(node.output.lbId());
        std::vector<ObjTuple> members;
        for (const ObjTuple& child : node.next) members.push_back(outputOf(child));
        group.nextIs(static_cast<std::uint32_t>(members.size()), members.data());
        LoadBalanceAndSource row(group.key());
        row.lbIs(group);
        row.sourceOtasIs(otas);
        outputs_.put(row);
    } else if (tuple.tableType() == tableTypeLabel) {
        Label label(node.output.labelId());
        label.labelIs(node.label);
        label.nextIs(outputOf(node.next[0]));
        LabelAndSource row(label.key());
        row.labelObjIs(label);
        row.sourceOtasIs(otas);
        outputs_.put(row);
    } else {
        Dest dest(node.output.destId(), DestDataIntf());
        dest.copyAllButKey(node.dest);
        DestAndSource row(dest.key());
        row.destIs(dest);
        row.sourceOtasIs(otas);
        outputs_.put(row);
    }
}

void ObjectGraph::releaseIfUnused(const ObjTuple& tuple) {
    const auto at = nodes_.find(tuple);
    if (at == nodes_.end()) return;
    const Node& node = at->second;
    if (node.isPresent || !node.parents.empty() || !node.hosts.empty()) return;
    outputs_.release(node.output);
    refused_.erase(tuple);
    nodes_.erase(at);
}

}  // namespace Agent
