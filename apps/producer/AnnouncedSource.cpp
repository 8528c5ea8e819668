#include "producer/AnnouncedSource.h"

#include "Mem/Files.h"
#include "agent/Places.h"

namespace Producer {
namespace {

using Agent::Places::announcement;

Quil::String pathOf(const Quil::Name& name) {
    AnnouncedSource::checkName(name);
    return Quil::cat(Agent::Places::inputs, "/", name);
}

QuilMemtab::MountInfo writer(const char* collection, std::uint32_t maxEntries) {
    auto info = QuilMemtab::MountInfo::writer(collection, maxEntries);
    info.keepOverRestart = true;
    return info;
}

}  // namespace

void AnnouncedSource::checkName(const Quil::Name& name) {
    const bool isPlain =
        name.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_.") == name.npos;
    if (name.empty() || name.size() > 64 || name[0] == '.' || !isPlain || name.ends_with(".new")) {
        throw Quil::RangeException(Quil::cat(
            "'", name,
            "' is no name of 1 to 64 letters, digits and -_. that neither begins with a dot nor ends in .new"));
    }
}

bool AnnouncedSource::isLeftBehind(const Quil::String& root, const Quil::Name& name) {
    return bool(Mem::Files::open(Mem::pathUnder(root, pathOf(name)) + "/host/host/fenix", false)) &&
           access((Mem::pathUnder(root, pathOf(name)) + "/" + announcement).c_str(), F_OK) == 0;
}

AnnouncedSource::AnnouncedSource(Corestore::EntityManager& em, const Quil::Name& name, L2Rib::Source source,
                                 std::uint32_t maxHosts)
    : em_(em),
      path_(pathOf(name)),
      directory_(Mem::pathUnder(em.root(), path_)),
      entry_(L2Rib::sourceDirEntryFactory(name)),
      hosts_(L2Rib::hostInputFactory("host")),
      loadBalances_(L2Rib::loadBalanceTableFactory("lb")),
      labels_(L2Rib::labelTableFactory("label")),
      dests_(L2Rib::destTableFactory("dest")) {
    // All or none: what is mounted stays in the tree until it is taken out.
    std::vector<Quil::Name> mounted;
    try {
        const auto mount = [&](const auto& rows, const char* collection, std::uint32_t maxEntries) {
            em.mount(path_, rows.table(), writer(collection, maxEntries));
            mounted.push_back(rows.table()->name());
        };
        mount(hosts_, "host", maxHosts);
        mount(loadBalances_, "lb", maxObjects);
        mount(labels_, "label", maxObjects);
        mount(dests_, "dest", maxObjects);
    } catch (...) {
        for (const auto& table : mounted) em.unmount(path_, table);
        throw;
    }
    entry_->hostTableMemtabPathIs(hosts_.table()->hostControl().name());
    entry_->lbTableMemtabPathIs(loadBalances_.table()->lbControl().name());
    entry_->labelTableMemtabPathIs(labels_.table()->labelControl().name());
    entry_->destTableMemtabPathIs(dests_.table()->destControl().name());
    entry_->hostTableLenIs(maxHosts);
    entry_->lbTableLenIs(maxObjects);
    entry_->labelTableLenIs(maxObjects);
    entry_->destTableLenIs(maxObjects);
    entry_->sourceIs(source);
    announcement_ = std::make_unique<Quil::AttrLogSource>(em.loop(), directory_, announcement, entry_);
    fillBegins();
}

AnnouncedSource::~AnnouncedSource() {
    forEachTable([&](auto& rows) { em_.unmount(path_, rows.table()->name()); });
}

void AnnouncedSource::hostIs(L2Rib::Host host) {
    L2Rib::Host before;
    const bool isThere = hosts_.table()->host(host.key(), before) && before.next() == host.next() &&
                         std::memcmp(&before.ciDest(), &host.ciDest(), sizeof host.ciDest()) == 0;
    host.lastMoveTimeIs(isThere ? before.lastMoveTime() : em_.loop().clock()->now());
    hosts_.put(host);
}

void AnnouncedSource::fillBegins() {
    forEachTable([](auto& rows) { rows.fillBegins(); });
}

void AnnouncedSource::fillEnds() {
    forEachTable([](auto& rows) { rows.fillEnds(); });
    entry_->initializedIs(true);
}

void AnnouncedSource::withdraw() {
    Mem::Files::remove(directory_ + "/" + announcement);
    announcement_.reset();
}

}  // namespace Producer
