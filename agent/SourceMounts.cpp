#include "agent/SourceMounts.h"

#include <bit>

namespace Agent {

SourceMounts::SourceMounts(Corestore::EntityManager& em, const Quil::Ptr<L2Rib::AgentSourceDir>& sources,
                           PolicySm& policy, FloodMerge& floods, Report report, std::function<void()> onChange)
    : em_(em), policy_(policy), floods_(floods), report_(std::move(report)), onChange_(std::move(onChange)) {
    notifierIs(sources);
    for (const auto& [name, unused] : sources->source()) follow(name);
}

SourceMounts::~SourceMounts() = default;

void SourceMounts::follow(const Quil::Name& name) {
    if (const auto node = followers_.extract(name); !node.empty()) {
        const L2Rib::Source before = node.mapped()->source;
        unmount(*node.mapped());
        reviewWaiting(before);
    }
    const auto entry = notifier()->source(name);
    if (!entry) return;
    auto& follower = followers_[name] = std::make_unique<Follower>(*this);
    follower->notifierIs(entry);
    review(*follower);
}

void SourceMounts::review(Follower& follower) {
    const auto& entry = *follower.notifier();
    const bool isWhole = entry.initialized();
    if (follower.isMounted()) {
        policy_.isWholeIs(follower.source, isWhole);
        floods_.isWholeIs(entry.name(), isWhole);
    }
    if (!isWhole) return;
    if (follower.isMounted() && follower.source == entry.source() && follower.said == saidBy(entry)) return;
    const L2Rib::Source before = follower.source;
    unmount(follower);
    try {
        mount(follower);
    } catch (const Quil::Exception& error) {
        report_(Quil::cat("source ", entry.name(), " is not merged: ", error.what()));
    }
    if (follower.source != before) reviewWaiting(before);
}

void SourceMounts::mount(Follower& follower) {
    checkSource(follower);
    const auto& entry = *follower.notifier();
    const InputTables tables = mountTables(follower);
    follower.source = entry.source();
    follower.said = saidBy(entry);
    policy_.sourceIs(follower.source, tables);
    floods_.sourceIs(notifier()->source(entry.name()));
    report_(Quil::cat("source ", entry.name(), " is merged: ", entry.source()));
    onChange_();
}

void SourceMounts::unmount(Follower& follower) {
    if (!follower.isMounted()) return;
    policy_.sourceDel(follower.source);
    floods_.sourceDel(follower.notifier()->name());
    unmountTables(follower);
    follower.source = L2Rib::sourceNone;
    onChange_();
}

std::vector<Quil::String> SourceMounts::saidBy(const L2Rib::SourceDirEntry& entry) {
    if (!entry.multiTable()) return {entry.hostTableMemtabPath()};
    return {entry.hostTableMemtabPath(), entry.lbTableMemtabPath(), entry.labelTableMemtabPath(),
            entry.destTableMemtabPath()};
}

InputTables SourceMounts::mountTables(Follower& follower) {
    const auto& entry = *follower.notifier();
    const auto mountOne = [&](auto factory, const Quil::String& path) {
        using Table = std::decay_t<decltype(*factory(""))>;
        const Place place = placeOf(path, Table::fwkCollection);
        auto table = factory(place.table);
        em_.mount(place.path, table, QuilMemtab::MountInfo::reader(Table::fwkCollection));
        follower.mounted.push_back(place);
        return table;
    };
    try {
        InputTables tables;
        tables.hosts = mountOne(L2Rib::hostInputFactory, entry.hostTableMemtabPath());
        if (entry.multiTable()) {
            tables.objects.loadBalances = mountOne(L2Rib::loadBalanceTableFactory, entry.lbTableMemtabPath());
            tables.objects.labels = mountOne(L2Rib::labelTableFactory, entry.labelTableMemtabPath());
            tables.objects.dests = mountOne(L2Rib::destTableFactory, entry.destTableMemtabPath());
        }
        return tables;
    } catch (...) {
        unmountTables(follower);
        throw;
    }
}

void SourceMounts::unmountTables(Follower& follower) {
    for (const Place& place : follower.mounted) em_.unmount(place.path, place.table);
    follower.mounted.clear();
}

void SourceMounts::reviewWaiting(L2Rib::Source source) {
    for (const auto& [name, other] : followers_) {
        const bool isWaiting = !other->isMounted() && other->notifier()->initialized();
        if (source == L2Rib::sourceNone || !isWaiting || other->notifier()->source() != source) continue;
        review(*other);
        if (other->isMounted()) return;
    }
}

void SourceMounts::checkSource(const Follower& follower) const {
    const L2Rib::Source source = follower.notifier()->source();
    if (std::popcount(static_cast<std::uint32_t>(source)) != 1) {
        throw Quil::RangeException(Quil::cat(source, " is not one source"));
    }
    for (const auto& [name, other] : followers_) {
        if (other->isMounted() && other->source == source) {
            throw Quil::RangeException(Quil::cat(source, " is announced by ", name, "; it waits until that has gone"));
        }
    }
}

SourceMounts::Place SourceMounts::placeOf(const Quil::String& memtabPath, const char* collection) {
    const auto last = memtabPath.rfind('/');
    const auto before = last == 0 || last == memtabPath.npos ? memtabPath.npos : memtabPath.rfind('/', last - 1);
    const bool isInside = ("/" + memtabPath + "/").find("/../") == memtabPath.npos;
    if (before == memtabPath.npos || memtabPath.substr(last + 1) != collection || !isInside) {
        throw Quil::RangeException(Quil::cat("'", memtabPath, "' is no table of a ", collection, " collection"));
    }
    return {memtabPath.substr(0, before), memtabPath.substr(before + 1, last - before - 1)};
}

}  // namespace Agent
