// l2rib host monitor: one line for every change of the output host table, until it is interrupted.
//
// A line tells what differs from the line before it for the same host: a change of what is not shown (the time of the
// last move) prints nothing, and a restart of the agent only what changed.
#include <cstdio>
#include <iostream>
#include <map>

#include "common/HostText.h"
#include "l2rib/Command.h"
#include "l2rib/Selectors.h"

namespace Tool {
namespace {

class Monitor : public L2Rib::HostOutput::NotifieeConst {
 public:
    Monitor(const Options& options, Selectors selectors) : options_(options), selectors_(selectors) {}

    // Mounted, or mounted again: what is there now against what was known.
    void onHost() override {
        names_.refreshFrom(options_.root);
        std::map<Bridging::MacVlanPair, L2Rib::HostAndSource> before;
        before.swap(known_);
        for (const auto& record : notifier()->hosts()) {
            const auto old = before.find(record.key());
            note(record.key(), old == before.end() ? nullptr : &old->second, &record);
            if (old != before.end()) before.erase(old);
        }
        for (const auto& [key, record] : before) note(key, &record, nullptr);
        if (!synchronised_ && options_.current) syncDone();
        synchronised_ = true;
    }

    void onHost(const Bridging::MacVlanPair& key) override {
        L2Rib::HostAndSource record;
        const bool present = notifier()->host(key, record);
        const auto known = known_.find(key);
        std::optional<L2Rib::HostAndSource> old;
        if (known != known_.end()) old = known->second;
        note(key, old ? &*old : nullptr, present ? &record : nullptr);
    }

 private:
    // Remembers the record and says what changed, if that is asked for.
    void note(const Bridging::MacVlanPair& key, const L2Rib::HostAndSource* old, const L2Rib::HostAndSource* record) {
        if (record && !selectors_.match(*record)) record = nullptr;
        if (record) {
            known_[key] = *record;
        } else {
            known_.erase(key);
        }
        if (!old && !record) return;
        names_.refreshFrom(options_.root);
        if (old && record && Apps::detailsOf(*old, names_) == Apps::detailsOf(*record, names_)) return;
        if (!synchronised_ && !options_.current) return;
        const char* op = !old ? "add" : record ? "update" : "delete";
        options_.json ? printJson(op, old, record) : printText(op, old, record);
    }

    void printText(const char* op, const L2Rib::HostAndSource* old, const L2Rib::HostAndSource* record) {
        const Apps::HostView now = view(record ? *record : *old);
        std::cout << Apps::timeNow() << " " << op << " " << now.vlan << " " << now.mac << " " << now.source << " "
                  << now.via;
        if (old && record) {
            const Apps::HostView was = view(*old);
            std::cout << " (was " << was.source << " " << was.via << unshown(was, now) << ")";
        }
        std::cout << std::endl;
    }

    // What differs of the rest.
    static Quil::String unshown(const Apps::HostView& was, const Apps::HostView& now) {
        Quil::String text;
        if (was.preference != now.preference) text += Quil::cat(", pref ", was.preference, " -> ", now.preference);
        if (was.seqNo != now.seqNo) text += Quil::cat(", seq ", was.seqNo, " -> ", now.seqNo);
        if (was.entryType != now.entryType) text += Quil::cat(", ", was.entryType, " -> ", now.entryType);
        return text;
    }

    void printJson(const char* op, const L2Rib::HostAndSource* old, const L2Rib::HostAndSource* record) {
        Apps::Json line{{"schema", 1}, {"op", op}, {"seq", sequence()}, {"time", Apps::timeNow()}, {"table", "host"}};
        line.update(Apps::keyOf(record ? *record : *old));
        if (record) line.update(Apps::detailsOf(*record, names_));
        if (old) line["old"] = Apps::detailsOf(*old, names_);
        std::cout << Apps::textOf(line) << std::endl;
    }

    void syncDone() {
        if (options_.json) {
            const Apps::Json line{{"schema", 1}, {"op", "sync-done"}, {"seq", sequence()}, {"rows", known_.size()}};
            std::cout << Apps::textOf(line) << std::endl;
        } else {
            std::cout << Apps::timeNow() << " sync-done " << known_.size() << " rows" << std::endl;
        }
    }

    Apps::HostView view(const L2Rib::HostAndSource& record) { return Apps::viewOf(record, names_); }
    std::uint64_t sequence() const { return notifier()->hostControl().sequence(); }

    const Options& options_;
    const Selectors selectors_;
    Apps::InterfaceNames names_;
    std::map<Bridging::MacVlanPair, L2Rib::HostAndSource> known_;
    bool synchronised_ = false;
};

}  // namespace

int hostMonitor(const Options& options) {
    HostTable table(options.root);
    Monitor monitor(options, Selectors(options.words));
    monitor.notifierIs(table.hosts);
    table.mount();
    while (std::cout) table.loop.runOnce(Quil::never);
    throw Quil::SystemException("standard output cannot be written");
}

}  // namespace Tool
