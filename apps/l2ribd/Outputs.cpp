#include "l2ribd/Outputs.h"

#include "L2Rib/TableInfo.h"
#include "SharedMem/FenixFile.h"
#include "agent/Places.h"
#include "common/Names.h"

Outputs::Outputs(Corestore::EntityManager& em, const Quil::String& directory,
                 const Quil::Ptr<L2Rib::PolicySmStatus>& status, Quil::Ptr<L2Rib::FloodSetOutput> floodSets,
                 Report report)
    : NotifieeConst(em.loop().clock()),
      em_(em),
      file_(directory),
      report_(std::move(report)),
      floodFile_(em.loop().clock(), directory, std::move(floodSets), report_),
      objects_(status, [this](const Agent::Identifiers& reserved) {
          AgentState wanted = state_;
          wanted.reserved = reserved;
          file_.write(wanted);
          state_ = wanted;
      }) {}

void Outputs::mount(Start start, bool isEnabled, Agent::PolicySm& policy, Agent::FloodMerge& floods,
                    Quil::Seconds hold) {
    bool isKnown = false;
    try {
        const auto before = file_.read();
        isKnown = before.has_value();
        state_ = before.value_or(AgentState());
    } catch (const Quil::RangeException& error) {
        report_(error.what());
    }
    const bool keeps = (start == Start::warm && isKnown) || !isEnabled;
    const auto hostTable = Mem::pathUnder(em_.root(), Quil::cat(Agent::Places::output, "/host/host"));
    if (start == Start::warm && !keeps && SharedMem::FenixFile::read(hostTable) != 0) {
        report_("what the agent before knew of its output tables is lost: they are made anew");
    }
    const bool isWarm = mountAll(keeps);
    mountRaised(keeps);
    policy_ = &policy;
    floods_ = &floods;
    if (keeps) objects_.takeOver(state_.reserved, *hosts_);
    if (keeps) takeOverFloodSets();
    policy.takeOver(isWarm ? state_.sources : 0, keeps ? state_.sources : 0);
    if (isWarm) report_("goes on with the output tables that are there");
    if (policy.absent() != 0) wakeupTimeIs(clock().now() + hold);
    letGo();
    state_.sources = policy.sources();
    file_.write(state_);
}

// Whether all were kept. Each that is damaged, or not there, is made anew; the merge puts right what the others say of
// it.
bool Outputs::mountAll(bool keeps) {
    bool areKept = keeps;
    const auto mount = [&](const auto& table, const auto& info) {
        areKept = mountOne(Agent::Places::output, table, info, keeps) && areKept;
    };
    using QuilMemtab::writer;
    mount(hosts_, L2Rib::TableInfo().hostOutputInfo(writer));
    mount(objects_.loadBalances(), L2Rib::TableInfo().loadBalanceOutputInfo(writer));
    mount(objects_.labels(), L2Rib::TableInfo().labelOutputInfo(writer));
    mount(objects_.dests(), L2Rib::TableInfo().destOutputInfo(writer));
    return areKept;
}

// Few hosts ever come home to another sequence number than their own.
void Outputs::mountRaised(bool keeps) {
    mountOne(Agent::Places::agent, raised_, QuilMemtab::MountInfo::writer(L2Rib::HostOutput::fwkCollection, 1024),
             keeps);
}

template <class Table>
bool Outputs::mountOne(const char* place, const Quil::Ptr<Table>& table, QuilMemtab::MountInfo info, bool keeps) {
    const Quil::String name = Quil::cat(place, "/", table->name(), "/", Table::fwkCollection);
    const Quil::String directory = Mem::pathUnder(em_.root(), name);
    const auto before = SharedMem::FenixFile::read(directory);
    info.keepOverRestart = keeps;
    em_.mount(place, table, info);
    const bool isKept = SharedMem::FenixFile::read(directory) == before;
    if (keeps && before != 0 && !isKept) report_(Quil::cat("the table ", name, " was damaged: it is made anew"));
    return isKept;
}

void Outputs::onTime() {
    if (const std::uint32_t away = policy_->absent(); away != 0) {
        report_(Quil::cat("not back after a restart of the agent: ", Apps::sourceNames(away),
                          "; what they said is withdrawn"));
    }
    policy_->awaitedIs(0);
    sourcesChanged();
}

void Outputs::takeOverFloodSets() {
    try {
        floodFile_.read();
    } catch (const Quil::RangeException& error) {
        report_(error.what());
    }
    floods_->takeOver();
}

// Of flood sets it is not known which source said them.
void Outputs::letGo() {
    if (policy_->absent() == 0) floods_->takenOverDel();
}

void Outputs::sourcesChanged() {
    if (!policy_) return;
    letGo();
    if (state_.sources == policy_->sources()) return;
    state_.sources = policy_->sources();
    try {
        file_.write(state_);
    } catch (const Quil::Exception& error) {
        report_(Quil::cat("which sources there are is not kept over a restart: ", error.what()));
    }
}
