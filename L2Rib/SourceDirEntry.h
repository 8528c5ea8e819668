// SourceDirEntry.h: how a source announces itself: where its tables are, whether they are filled, and its flood sets.
// And the directory of all sources.
//
// A writer makes the entry, sets paths, lengths and source, and initialized last, when its tables hold what it knows;
// readers trust the tables only then. It speaks of the tables: flood sets may come later. Readers in other processes
// are told of what differs after a turn of the writer's loop: who fills tables again sets initialized to false and lets
// a turn pass before anything else changes. A path is that of the table's map under the root
// ("l2rib/input/bgp/host/host"); a length is the most entries that the table was made for.
//
// Owner     The directory holds its entries, an entry its flood sets, by counted pointers.
// Threads   Event-loop thread; watchers are told from inside the setters, only of real changes.
#pragma once

#include "L2Rib/FloodSet.h"
#include "L2Rib/Source.h"

namespace L2Rib {

class L2RIB_EXPORT SourceDirEntry : public Quil::Entity {
 public:
    class L2RIB_EXPORT NotifieeConst : public Quil::Notifiee<SourceDirEntry, NotifieeConst> {
     public:
        virtual void onHostTableMemtabPath() {}
        virtual void onLbTableMemtabPath() {}
        virtual void onLabelTableMemtabPath() {}
        virtual void onDestTableMemtabPath() {}
        virtual void onHostTableLen() {}
        virtual void onLbTableLen() {}
        virtual void onLabelTableLen() {}
        virtual void onDestTableLen() {}
        virtual void onSource() {}
        virtual void onInitialized() {}
        virtual void onVlanFloodSet(const Bridging::VlanId&) {}
        virtual void onVlanFloodSet() {}
    };

    explicit SourceDirEntry(Quil::Name name);
    ~SourceDirEntry() override;

    const Quil::String& hostTableMemtabPath() const { return hostTableMemtabPath_; }
    const Quil::String& lbTableMemtabPath() const { return lbTableMemtabPath_; }
    const Quil::String& labelTableMemtabPath() const { return labelTableMemtabPath_; }
    const Quil::String& destTableMemtabPath() const { return destTableMemtabPath_; }
    std::uint32_t hostTableLen() const { return hostTableLen_; }
    std::uint32_t lbTableLen() const { return lbTableLen_; }
    std::uint32_t labelTableLen() const { return labelTableLen_; }
    std::uint32_t destTableLen() const { return destTableLen_; }
    Source source() const { return source_; }
    // Whether load-balance groups, labels and destinations have tables of their own beside the hosts'.
    bool multiTable() const {
        return !lbTableMemtabPath_.empty() && !labelTableMemtabPath_.empty() && !destTableMemtabPath_.empty();
    }
    bool initialized() const { return initialized_; }

    void hostTableMemtabPathIs(const Quil::String& path) {
        setAndNotify(hostTableMemtabPath_, path, notifiees_, &NotifieeConst::onHostTableMemtabPath);
    }
    void lbTableMemtabPathIs(const Quil::String& path) {
        setAndNotify(lbTableMemtabPath_, path, notifiees_, &NotifieeConst::onLbTableMemtabPath);
    }
    void labelTableMemtabPathIs(const Quil::String& path) {
        setAndNotify(labelTableMemtabPath_, path, notifiees_, &NotifieeConst::onLabelTableMemtabPath);
    }
    void destTableMemtabPathIs(const Quil::String& path) {
        setAndNotify(destTableMemtabPath_, path, notifiees_, &NotifieeConst::onDestTableMemtabPath);
    }
    void hostTableLenIs(std::uint32_t len) {
        setAndNotify(hostTableLen_, len, notifiees_, &NotifieeConst::onHostTableLen);
    }
    void lbTableLenIs(std::uint32_t len) { setAndNotify(lbTableLen_, len, notifiees_, &NotifieeConst::onLbTableLen); }
    void labelTableLenIs(std::uint32_t len) {
        setAndNotify(labelTableLen_, len, notifiees_, &NotifieeConst::onLabelTableLen);
    }
    void destTableLenIs(std::uint32_t len) {
        setAndNotify(destTableLen_, len, notifiees_, &NotifieeConst::onDestTableLen);
    }
    void sourceIs(Source source) { setAndNotify(source_, source, notifiees_, &NotifieeConst::onSource); }
    void initializedIs(bool initialized) {
        setAndNotify(initialized_, initialized, notifiees_, &NotifieeConst::onInitialized);
    }
    // Takes over all attributes of another entry, flood sets included, but not its name.
    void SourceDirEntryIs(const SourceDirEntry& other);

    const std::map<Bridging::VlanId, Quil::Ptr<VlanFloodSet>>& vlanFloodSet() const { return vlanFloodSet_.all(); }
    Quil::Ptr<VlanFloodSet> vlanFloodSet(Bridging::VlanId vlanId) const { return vlanFloodSet_.child(vlanId); }
    Quil::Ptr<VlanFloodSet> vlanFloodSetIs(Bridging::VlanId vlanId) { return vlanFloodSet_.is(vlanId); }
    Quil::Ptr<VlanFloodSet> vlanFloodSetDel(Bridging::VlanId vlanId) { return vlanFloodSet_.del(vlanId); }
    void vlanFloodSetDelAll() { vlanFloodSet_.delAll(); }

    const Quil::Type& fwkType() const override;
    static void fwkDeclare(Quil::TypeBuilder<SourceDirEntry>& type);
    Quil::NotifieeList<NotifieeConst>& fwkNotifiees() const { return notifiees_; }

 private:
    Quil::String hostTableMemtabPath_, lbTableMemtabPath_, labelTableMemtabPath_, destTableMemtabPath_;
    std::uint32_t hostTableLen_ = 0, lbTableLen_ = 0, labelTableLen_ = 0, destTableLen_ = 0;
    Source source_ = sourceNone;
    bool initialized_ = false;
    mutable Quil::NotifieeList<NotifieeConst> notifiees_;
    Quil::Children<Bridging::VlanId, VlanFloodSet, NotifieeConst> vlanFloodSet_{this, "vlanFloodSet", notifiees_,
                                                                                &NotifieeConst::onVlanFloodSet};
};

class L2RIB_EXPORT AgentSourceDir : public Quil::Entity {
 public:
    class L2RIB_EXPORT NotifieeConst : public Quil::Notifiee<AgentSourceDir, NotifieeConst> {
     public:
        virtual void onSource(const Quil::Name&) {}
        virtual void onSource() {}
    };

    explicit AgentSourceDir(Quil::Name name);
    ~AgentSourceDir() override;

    const std::map<Quil::Name, Quil::Ptr<SourceDirEntry>>& source() const { return source_.all(); }
    Quil::Ptr<SourceDirEntry> source(const Quil::Name& name) const { return source_.child(name); }
    Quil::Ptr<SourceDirEntry> sourceIs(const Quil::Name& name) { return source_.is(name); }
    Quil::Ptr<SourceDirEntry> sourceDel(const Quil::Name& name) { return source_.del(name); }
    void sourceDelAll() { source_.delAll(); }

    const Quil::Type& fwkType() const override;
    static void fwkDeclare(Quil::TypeBuilder<AgentSourceDir>& type);
    Quil::NotifieeList<NotifieeConst>& fwkNotifiees() const { return notifiees_; }

 private:
    mutable Quil::NotifieeList<NotifieeConst> notifiees_;
    Quil::Children<Quil::Name, SourceDirEntry, NotifieeConst> source_{this, "source", notifiees_,
                                                                      &NotifieeConst::onSource};
};

L2RIB_EXPORT Quil::Ptr<SourceDirEntry> sourceDirEntryFactory(const Quil::Name& name);
L2RIB_EXPORT Quil::Ptr<AgentSourceDir> agentSourceDirFactory(const Quil::Name& name);

}  // namespace L2Rib
