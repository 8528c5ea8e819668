// Outputs: what the agent publishes, four tables and the flood sets, and a table of its own: how a new agent comes by
// them.
//
// Warm, it takes the tables that the one before it left, and goes on: readers notice nothing but what has changed. What
// sources that are not back yet have won stands for the hold time. Cold, or where nothing is known of the tables, it
// makes new ones: readers mount again and are told what differs.
#pragma once

#include "Corestore/EntityManager.h"
#include "agent/FloodMerge.h"
#include "agent/PolicySm.h"
#include "l2ribd/FloodFile.h"
#include "l2ribd/StateFile.h"

class Outputs : Quil::Clock::NotifieeConst {
 public:
    using Report = std::function<void(const Quil::String&)>;
    enum class Start { warm, cold };

    // directory: where the state is kept.
    Outputs(Corestore::EntityManager& em, const Quil::String& directory, const Quil::Ptr<L2Rib::PolicySmStatus>& status,
            Quil::Ptr<L2Rib::FloodSetOutput> floodSets, Report report);
    ~Outputs() override = default;

    const Quil::Ptr<L2Rib::HostOutput>& hosts() const { return hosts_; }
    Agent::ObjectOutputs& objects() { return objects_; }
    // What the merge keeps for itself.
    const Quil::Ptr<L2Rib::HostOutput>& raised() { return raised_; }

    // isEnabled: whether the merge is; while it is not, tables are never made anew.
    void mount(Start start, bool isEnabled, Agent::PolicySm& policy, Agent::FloodMerge& floods, Quil::Seconds hold);
    // Other sources are merged now; other flood sets are published.
    void sourcesChanged();
    void floodSetsChanged() { floodFile_.changed(); }
    // What is still to be written.
    void flush() { floodFile_.writeNow(); }

 private:
    void onTime() override;  // the hold time is over
    bool mountAll(bool keeps);
    void mountRaised(bool keeps);
    // Whether what is there was kept.
    template <class Table>
    bool mountOne(const char* place, const Quil::Ptr<Table>& table, QuilMemtab::MountInfo info, bool keeps);
    void takeOverFloodSets();
    void letGo();

    Corestore::EntityManager& em_;
    const StateFile file_;
    const Report report_;
    FloodFile floodFile_;
    AgentState state_;
    const Quil::Ptr<L2Rib::HostOutput> hosts_ = L2Rib::hostOutputFactory("host");
    const Quil::Ptr<L2Rib::HostOutput> raised_ = L2Rib::hostOutputFactory("raised");
    Agent::ObjectOutputs objects_;
    Agent::PolicySm* policy_ = nullptr;  // once they are mounted
    Agent::FloodMerge* floods_ = nullptr;
};
