// SourceMounts: follows the directory of sources: mounts the tables of each that is initialized, and hands them to the
// merge.
//
// A source is one bit, so only one entry at a time speaks for it: the one that was initialized first. Others of the
// same source wait until it has gone.
//
// Threads   Event-loop thread.
#pragma once

#include <functional>
#include <map>
#include <memory>

#include "Corestore/EntityManager.h"
#include "agent/FloodMerge.h"
#include "agent/PolicySm.h"

namespace Agent {

class SourceMounts : L2Rib::AgentSourceDir::NotifieeConst {
 public:
    using Report = std::function<void(const Quil::String&)>;

    // onChange is called when other sources are merged than before.
    SourceMounts(
        Corestore::EntityManager& em, const Quil::Ptr<L2Rib::AgentSourceDir>& sources, PolicySm& policy,
        FloodMerge& floods, Report report, std::function<void()> onChange = [] {});
    ~SourceMounts() override;

 private:
    struct Place {  // of a table: "l2rib/input/bgp/host/host" is the table "host" under "l2rib/input/bgp"
        Quil::String path, table;
    };
    // One entry of the directory.
    struct Follower : L2Rib::SourceDirEntry::NotifieeConst {
        SourceMounts& mounts;
        explicit Follower(SourceMounts& m) : mounts(m) {}
        void onInitialized() override { mounts.review(*this); }
        void onSource() override { mounts.review(*this); }
        void onHostTableMemtabPath() override { mounts.review(*this); }
        void onLbTableMemtabPath() override { mounts.review(*this); }
        void onLabelTableMemtabPath() override { mounts.review(*this); }
        void onDestTableMemtabPath() override { mounts.review(*this); }
        bool isMounted() const { return !mounted.empty(); }
        // What is mounted at present.
        L2Rib::Source source = L2Rib::sourceNone;
        std::vector<Quil::String> said;  // the paths, as the entry had them
        std::vector<Place> mounted;
    };

    using L2Rib::AgentSourceDir::NotifieeConst::onSource;
    void onSource(const Quil::Name& name) override { follow(name); }
    void follow(const Quil::Name& name);
    void review(Follower& follower);
    void mount(Follower& follower);
    void unmount(Follower& follower);
    void checkSource(const Follower& follower) const;
    void reviewWaiting(L2Rib::Source source);
    InputTables mountTables(Follower& follower);
    void unmountTables(Follower& follower);
    static std::vector<Quil::String> saidBy(const L2Rib::SourceDirEntry& entry);
    static Place placeOf(const Quil::String& memtabPath, const char* collection);

    Corestore::EntityManager& em_;
    PolicySm& policy_;
    FloodMerge& floods_;
    const Report report_;
    const std::function<void()> onChange_;
    std::map<Quil::Name, std::unique_ptr<Follower>> followers_;
};

}  // namespace Agent
