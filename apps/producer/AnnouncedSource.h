// AnnouncedSource: a source as it shows itself: its four tables, which this process writes, its entry of the directory
// with the flood sets, and the socket on which the agent learns of it.
//
// The tables are taken over as an earlier process left them; a fill then changes only what differs. The entry says that
// the source is initialized when the first fill ends.
//
// Threads   Event-loop thread.
// Errors    SystemException, for one when another process writes these tables.
#pragma once

#include <memory>

#include "Corestore/EntityManager.h"
#include "L2Rib/DestTable.h"
#include "L2Rib/HostInput.h"
#include "L2Rib/LabelTable.h"
#include "L2Rib/LoadBalanceTable.h"
#include "L2Rib/SourceDirEntry.h"
#include "Quil/AttrLogSource.h"
#include "producer/RowSet.h"

namespace Producer {

class AnnouncedSource {
 public:
    static constexpr std::uint32_t maxObjects = 1024;  // of each kind; more are taken, too

    // A fill has begun. maxHosts: for how many hosts the table is made; more are taken, too.
    AnnouncedSource(Corestore::EntityManager& em, const Quil::Name& name, L2Rib::Source source, std::uint32_t maxHosts);
    ~AnnouncedSource();
    AnnouncedSource(const AnnouncedSource&) = delete;
    AnnouncedSource& operator=(const AnnouncedSource&) = delete;

    const Quil::Ptr<L2Rib::SourceDirEntry>& entry() const { return entry_; }
    RowSet<L2Rib::HostInput>& hosts() { return hosts_; }
    RowSet<L2Rib::LoadBalanceTable>& loadBalances() { return loadBalances_; }
    RowSet<L2Rib::LabelTable>& labels() { return labels_; }
    RowSet<L2Rib::DestTable>& dests() { return dests_; }

    // A host whose last move is now, unless the table has it where it is already: then it moved when that says.
    void hostIs(L2Rib::Host host);
    void fillBegins();
    void fillEnds();
    // The source ends for good: what it said is dropped at once. Without this its end looks like a crash.
    void withdraw();

    // Whether a source of this name was there and has not withdrawn itself.
    static bool isLeftBehind(const Quil::String& root, const Quil::Name& name);
    // A name that can be that of a directory; the range exception otherwise.
    static void checkName(const Quil::Name& name);

 private:
    template <class F>
    void forEachTable(F&& visit) {
        visit(hosts_);
        visit(loadBalances_);
        visit(labels_);
        visit(dests_);
    }

    Corestore::EntityManager& em_;
    const Quil::String path_;       // "l2rib/input/NAME"
    const Quil::String directory_;  // with the root before it
    const Quil::Ptr<L2Rib::SourceDirEntry> entry_;
    RowSet<L2Rib::HostInput> hosts_;
    RowSet<L2Rib::LoadBalanceTable> loadBalances_;
    RowSet<L2Rib::LabelTable> labels_;
    RowSet<L2Rib::DestTable> dests_;
    std::unique_ptr<Quil::AttrLogSource> announcement_;
};

}  // namespace Producer
