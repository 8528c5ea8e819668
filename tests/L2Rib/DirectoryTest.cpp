// How sources announce themselves: directory, flood sets, status: what is told to whom, in which order.
#include "L2Rib/L2Rib.h"
#include "support/Support.h"

namespace {

using namespace L2Rib;
using Bridging::VlanId;

// Every callback as a line; a lookup inside a callback sees the new state.
struct Watcher : SourceDirEntry::NotifieeConst,
                 AgentSourceDir::NotifieeConst,
                 VlanFloodSet::NotifieeConst,
                 FloodSet::NotifieeConst,
                 PolicySmStatus::NotifieeConst,
                 Config::NotifieeConst {
    std::string log;
    void onHostTableMemtabPath() override { log += "path "; }
    void onHostTableLen() override { log += "len "; }
    void onSource() override { log += "source "; }
    void onInitialized() override { log += "initialized "; }
    void onVlanFloodSet(const VlanId& vlan) override {
        const auto child = SourceDirEntry::NotifieeConst::notifier()->vlanFloodSet(vlan);
        log += Quil::cat("vlan", vlan, child && child->parent() ? "+ " : "- ");
    }
    void onVlanFloodSet() override { log += "never "; }
    void onSource(const Quil::Name& name) override {
        log += name + (AgentSourceDir::NotifieeConst::notifier()->source(name) ? "+ " : "- ");
    }
    void onFloodSet(const Lanx::EthAddr&) override { log += "mac "; }
    void onFloodSetType() override { log += "type "; }
    void onDestSet(const Dest& dest) override { log += Quil::cat("dest", dest.key(), " "); }
    void onMaxDestId() override { log += "max "; }
    void onAgentEnabled() override { log += "enabled "; }
    std::string take() { return std::exchange(log, {}); }
};

Dest destOf(std::uint64_t key) { return {DestId(key), DestDataIntf(Lanx::IntfId(1))}; }
const Lanx::EthAddr mac = Lanx::EthAddr::fromNumber(0x020000000001);

TEST(SourceDirectory, TellsOfRealChangesInOrder) {
    auto dir = agentSourceDirFactory("sources");
    Watcher watcher;
    watcher.AgentSourceDir::NotifieeConst::notifierIs(dir);
    auto entry = dir->sourceIs("bgp");
    EXPECT_EQ(dir->sourceIs("bgp"), entry);
    EXPECT_EQ(entry->fullName(), "sources/bgp");
    EXPECT_EQ(watcher.take(), "bgp+ ");
    watcher.SourceDirEntry::NotifieeConst::notifierIs(entry);
    for (int i = 0; i < 2; ++i) {
        entry->hostTableMemtabPathIs("l2rib/input/bgp/host/host");
        entry->hostTableLenIs(16384);
        entry->sourceIs(sourceBgp);
        entry->initializedIs(true);
    }
    EXPECT_EQ(watcher.take(), "path len source initialized ");
    EXPECT_FALSE(entry->multiTable());
    entry->lbTableMemtabPathIs("lb"), entry->labelTableMemtabPathIs("label"), entry->destTableMemtabPathIs("dest");
    EXPECT_TRUE(entry->multiTable());

    auto floodSets = entry->vlanFloodSetIs(VlanId(10));
    EXPECT_EQ(entry->vlanFloodSetIs(VlanId(10)), floodSets);
    EXPECT_EQ(entry->vlanFloodSetDel(VlanId(11)), nullptr);
    EXPECT_EQ(entry->vlanFloodSetDel(VlanId(10)), floodSets);
    EXPECT_EQ(floodSets->parent(), nullptr);
    EXPECT_EQ(watcher.take(), "vlan10+ vlan10- ");
    for (const std::uint16_t vlan : {1, 2, 3}) entry->vlanFloodSetIs(VlanId(vlan));
    entry->vlanFloodSetDelAll();
    EXPECT_EQ(watcher.take(), "vlan1+ vlan2+ vlan3+ vlan1- vlan2- vlan3- ");
    EXPECT_EQ(dir->sourceDel("bgp"), entry);
    EXPECT_EQ(dir->sourceDel("bgp"), nullptr);
    EXPECT_EQ(watcher.take(), "bgp- ");
}

TEST(SourceDirectory, AnEntryTakesOverAnother) {
    auto from = sourceDirEntryFactory("a"), to = sourceDirEntryFactory("b");
    from->sourceIs(sourceMlag);
    from->initializedIs(true);
    from->vlanFloodSetIs(VlanId(10))->floodSetIs(mac)->destSetIs(destOf(1), true);
    from->vlanFloodSet(VlanId(10))->floodSet(mac)->floodSetTypeIs(floodSetTypeAll);
    to->vlanFloodSetIs(VlanId(20));
    to->vlanFloodSetIs(VlanId(10))->floodSetIs(mac)->destSetIs(destOf(2), true);
    to->SourceDirEntryIs(*from);
    EXPECT_EQ(to->name(), "b");
    EXPECT_EQ(to->source(), sourceMlag);
    EXPECT_EQ(to->vlanFloodSet().size(), 1u);
    EXPECT_EQ(to->vlanFloodSet(VlanId(10))->floodSet(mac)->destSet(), (FloodSet::DestSet{{destOf(1), true}}));
    EXPECT_EQ(to->vlanFloodSet(VlanId(10))->floodSet(mac)->floodSetType(), floodSetTypeAll);
    EXPECT_EQ(to->fwkType().attribute("source").get(*to), "sourceMlag");
    to->fwkType().attribute("hostTableLen").set(*to, "7");
    EXPECT_EQ(to->hostTableLen(), 7u);
    EXPECT_FALSE(to->fwkType().attribute("multiTable").set);
}

TEST(FloodSets, MembershipIsByTheWholeDestination) {
    VlanFloodSet vlan(VlanId(10));
    Watcher watcher;
    auto set = vlan.floodSetIs(mac);
    watcher.FloodSet::NotifieeConst::notifierIs(set);
    set->destSetIs(destOf(1), true), set->destSetIs(destOf(1), true), set->destSetIs(destOf(1), false);
    set->destSetIs(destOf(2), true);
    EXPECT_EQ(set->destSet().size(), 2u);
    EXPECT_FALSE(set->destSetDel(destOf(3)));
    EXPECT_TRUE(set->destSetDel(destOf(2)));
    set->floodSetTypeIs(floodSetTypeAny), set->floodSetTypeIs(floodSetTypeAny);
    EXPECT_EQ(watcher.take(), "dest1 dest1 dest2 dest2 type ");
    Dest badLabel;
    badLabel.destTypeIs(destTypeMpls);
    badLabel.storage1Is(0xffffffff);
    EXPECT_THROW(set->destSetIs(badLabel, true), Quil::RangeException);
    EXPECT_EQ(set->destSet().size(), 1u);
    set->destSetDelAll();
    EXPECT_EQ(watcher.take(), "dest1 ");
    for (const std::uint64_t key : {1, 2, 3}) set->destSetIs(destOf(key), true);
    for (const auto& [dest, flag] : set->destSet()) set->destSetIs(dest, !flag);  // walked over while it is set
    for (const auto& [dest, flag] : set->destSet()) EXPECT_FALSE(flag);
}

TEST(FloodSets, ATripleIsAValue) {
    EXPECT_EQ(Quil::Hash().mix(0x74736574).finish(), 0xba6bd213u);  // "test"
    const FloodSetTriple a(VlanId(10), mac, destOf(7));
    EXPECT_EQ(a.hash(), 0xf8aa7df1u);  // computed apart from this code
    EXPECT_EQ(FloodSetTriple(a.str()), a);
    EXPECT_EQ(a.str().substr(0, 80),
              "Value('L2Rib::FloodSetTriple', ** {'vlanId': 10, 'macAddr': 02:00:00:00:00:01, '");
    EXPECT_LT(a, FloodSetTriple(VlanId(11), Lanx::EthAddr(), destOf(1)));
    EXPECT_LT(a, FloodSetTriple(VlanId(10), mac, destOf(8)));
    EXPECT_FALSE(a < a);
}

TEST(AgentStatus, DefaultsAndMaximaThatMayGoDown) {
    auto status = policySmStatusFactory("status");
    auto config = configFactory("config");
    Watcher watcher;
    watcher.PolicySmStatus::NotifieeConst::notifierIs(status);
    watcher.Config::NotifieeConst::notifierIs(config);
    EXPECT_TRUE(config->agentEnabled());
    config->agentEnabledIs(true);
    for (const std::uint64_t id : {7, 7, 3}) status->maxDestIdIs(DestId(id));
    config->agentEnabledIs(false);
    EXPECT_EQ(watcher.take(), "max max enabled ");
}

}  // namespace
