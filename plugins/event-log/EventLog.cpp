// event-log: writes one JSON line for every call that a consumer gets. A host that leads to an object is written with
// what that leads to, and again when that has changed.
//
//   L2RIB_EVENT_LOG   the file, to which lines are added; unset: standard output
#include <fstream>
#include <iostream>

#include "L2Rib/L2RibClientSm.h"
#include "L2Rib/Plugin/Plugin.h"
#include "common/HostText.h"
#include "plugins/common/Settings.h"

namespace {

class EventLog : public L2Rib::L2RibClientSm {
 public:
    explicit EventLog(const Quil::Ptr<L2Rib::Plugin::Context>& context)
        : L2RibClientSm("event-log", context),
          root_(context->entityManager()->root()),
          objects_(*context->entityManager(), [this](const auto& key) { handleHost(key); }) {
        const Quil::String path = Plugins::setting("L2RIB_EVENT_LOG");
        if (path.empty()) return;
        file_.open(path, std::ios::app);
        if (!file_) throw Quil::SystemException("L2RIB_EVENT_LOG " + path + ": cannot be written");
    }

    void doAddHost(const Bridging::MacVlanPair& key) override { write("add", key); }
    void doUpdateHost(const Bridging::MacVlanPair& key) override { write("update", key); }
    void doRemoveHost(const Bridging::MacVlanPair& key) override { write("remove", key); }

 private:
    void write(const char* op, const Bridging::MacVlanPair& key) {
        L2Rib::HostAndSource record(key);
        const bool isPresent = l2RibOutput()->host(key, record);
        objects_.hostIs(key, isPresent ? record.host().next() : L2Rib::ObjTuple());
        if (!isPresent) record.keyIs(key);
        Apps::Json line{{"schema", 1},
                        {"op", op},
                        {"seq", l2RibOutput()->hostControl().sequence()},
                        {"time", Apps::timeNow()},
                        {"table", "host"}};
        line.update(Apps::keyOf(record));
        if (isPresent) {
            refreshNames();
            line.update(Apps::detailsOf(record, names_, &objects_));
        } else if (const auto known = source().find(key); known != source().end()) {
            line["source"] = Apps::sourceName(known->second.source());
        }
        std::ostream& out = file_.is_open() ? file_ : std::cout;
        if (out << Apps::textOf(line) << std::endl) return;
        out.clear();  // it may work again when the host is tried again
        throw Quil::SystemException("event-log: cannot be written");
    }

    // Once a second is often enough for what hardly ever changes.
    void refreshNames() {
        if (clock()->now() < namesAreGoodUntil_) return;
        names_.refreshFrom(root_);
        namesAreGoodUntil_ = clock()->now() + 1;
    }

    const Quil::String root_;
    L2Rib::OutputObjects objects_;
    Quil::Seconds namesAreGoodUntil_ = 0;
    Apps::InterfaceNames names_;
    std::ofstream file_;
};

}  // namespace

void l2ribPluginInit(const Quil::Ptr<L2Rib::Plugin::Context>& context) {
    const std::uint32_t sources = Plugins::sourceFilter();
    static const auto log = Quil::makePtr<EventLog>(context);
    log->sourceFilterIs(sources);
}
