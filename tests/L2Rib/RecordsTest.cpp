// Hosts, labels, groups: layouts, texts, equality with its deliberate lopsidedness, arrays with holes.
#include "L2Rib/L2Rib.h"
#include "support/Support.h"

namespace {

using namespace L2Rib;

ObjTuple dest(std::uint64_t id) { return ObjTuple(ObjId(id), tableTypeDest); }
CiDest vteps(std::initializer_list<const char*> addresses) {
    CiDest out(destTypeVxlan);
    std::uint32_t i = 0;
    for (const char* address : addresses) out.vtepAddrIs(CiVtepIndex(i++), Lanx::IpGenAddr(address));
    return out;
}
const Bridging::MacVlanPair key("02:aa:aa:aa:aa:01/10");

TEST(Host, TellsTheDefaultFromAnyChange) {
    EXPECT_TRUE(!Host());
    const std::function<void(Host&)> changes[] = {[](Host& h) { h.keyIs(key); },
                                                  [](Host& h) { h.seqNoIs(Keel::Seqno32(1)); },
                                                  [](Host& h) { h.preferenceIs(1); },
                                                  [](Host& h) { h.lastMoveTimeIs(0.5); },
                                                  [](Host& h) { h.nextIs(dest(1)); },
                                                  [](Host& h) { h.entryTypeIs(Bridging::entryTypeStatic); },
                                                  [](Host& h) { h.ciDestIs(CiDest(destTypeCpu)); }};
    for (const auto& change : changes) {
        Host host;
        change(host);
        EXPECT_FALSE(!host);
        EXPECT_NE(host, Host());
    }
}

TEST(Host, PrintsNextOrCiDestNeverBoth) {
    Host host(key);
    host.preferenceIs(100);
    EXPECT_EQ(host.stringValue(),
              "Host key: 02:aa:aa:aa:aa:01/10 pref: 100 seq: 0 type entryTypeDynamic ciDest Value('L2Rib::CiDest', ** "
              "{'destType': destTypeIntf, 'intf': None, 'vtepAddr': {}})");
    host.nextIs(dest(7));
    HostAndSource output(key);
    output.hostIs(host);
    output.sourceIs(sourceBgp);
    EXPECT_EQ(output.str(),
              "(Host key: 02:aa:aa:aa:aa:01/10 pref: 100 seq: 0 type entryTypeDynamic next (Dest 7) sourceBgp)");
    host.nextIs(ObjTuple(ObjId(0), tableTypeDest));  // not valid, but not the empty tuple either
    EXPECT_NE(host.stringValue().find(" next (Dest INVALID)"), std::string::npos);
}

TEST(Label, PrintsAndParsesWhole) {
    LabelAndSource output(LabelId(3));
    Label label(LabelId(3));
    label.labelIs(Lanx::MplsLabel(16));
    label.nextIs(dest(7));
    output.labelObjIs(label);
    output.sourceOtasIs(ObjTupleAndSource(dest(9), sourceBgpEvpnMpls));
    EXPECT_EQ(output.str(), "(Label key: 3 value: 16 next: (Dest 7) source: (Dest 9 sourceBgpEvpnMpls))");
    EXPECT_EQ(LabelAndSource(Quil::valueToStrep(output)), output);
    DestAndSource destination(DestId(1));
    EXPECT_EQ(DestAndSource(Quil::valueToStrep(destination)), destination);
    try {
        Label("Value('L2Rib::Label', ** {'key': 1, 'label': 8388609, 'next': x})");
        FAIL();
    } catch (const Quil::RangeException& error) {
        EXPECT_STREQ(error.what(), "label: MplsLabel::value < MplsLabel::min or > MplsLabel::luWithdraw not allowed");
    }
}

TEST(RecordsDeathTest, CollectionsHaveNoText) {
    const auto text = Quil::valueToStrep(Host(key));
    EXPECT_DEATH(Host{text},
                 "src-includes/L2Rib/L2RibMemtab: .*`!\"No String constructor for CiDest - has collection\"'");
    EXPECT_DEATH(LoadBalance{""}, "`!\"No String constructor for LoadBalance - has collection\"'");
    EXPECT_DEATH(LoadBalanceAndSource{Quil::valueToStrep(LoadBalanceAndSource(LoadBalanceId(1)))}, "LoadBalance - has");
    // The fields before it are parsed first.
    EXPECT_THROW(Host{"Value('L2Rib::Host', ** {'key': nonsense"}, Quil::RangeException);
}

TEST(CiDest, HashesAndCompares) {
    EXPECT_EQ(vteps({"10.0.0.1", "10.0.0.2"}).hash(), vteps({"10.0.0.2", "10.0.0.1"}).hash());
    EXPECT_EQ(vteps({}).hash(), 0u);
    EXPECT_EQ(CiDest(destTypeCpu).hash(), 0u);
    EXPECT_EQ(vteps({"10.0.0.1", "10.0.0.2"}).cmp(vteps({"10.0.0.2", "10.0.0.1"})), -1);
    EXPECT_EQ(vteps({"10.0.0.9"}).cmp(vteps({"10.0.0.1", "10.0.0.2"})), -1);
    EXPECT_EQ(CiDest(destTypeCpu).cmp(CiDest(destTypeIntf)), 1);
    CiDest high, low;
    high.intfIs(Lanx::IntfId(0x100000000u));
    low.intfIs(Lanx::IntfId(0xffffffffu));
    EXPECT_EQ(high.cmp(low), 1);
}

TEST(CiDestDeathTest, TwoCpuDestinationsCannotBeCompared) {
    EXPECT_DEATH((void)CiDest(destTypeCpu).cmp(CiDest(destTypeCpu)), "`destType\\(\\) == destTypeVxlan_'");
    EXPECT_DEATH((void)CiDest(destTypeMpls).hash(), "`destType\\(\\) == destTypeVxlan_'");
    Host a(key), b(key);
    a.ciDestIs(CiDest(destTypeCpu));
    b.ciDestIs(CiDest(destTypeCpu));
    EXPECT_DEATH((void)(a == b), "destTypeVxlan_");
    b.preferenceIs(1);
    EXPECT_NE(a, b);  // decided before the destination is looked at
}

LoadBalance group(int members) {
    LoadBalance lb(LoadBalanceId(1));
    for (int i = 0; i < members; ++i)
        lb.nextIs(EcmpIndex(static_cast<std::uint8_t>(i)), dest(100 + static_cast<std::uint64_t>(i)));
    return lb;
}

TEST(LoadBalance, RemovesMembersLeavingHolesButNoneAtTheEnd) {
    LoadBalance lb = group(4);
    EXPECT_EQ(lb.nextDel(EcmpIndex(1)), dest(101));
    EXPECT_EQ(lb.next().count(), 4u);
    EXPECT_EQ(lb.str(), "(LB key: 1 0: (Dest 100) 2: (Dest 102) 3: (Dest 103))");
    lb.nextDel(EcmpIndex(2));
    EXPECT_EQ(lb.nextDel(EcmpIndex(3)), dest(103));
    EXPECT_EQ(lb.next().count(), 1u);
    EXPECT_EQ(lb.nextDel(EcmpIndex(9)), ObjTuple());
    LoadBalance other = group(1);
    EXPECT_EQ(lb, other);  // whatever lies beyond the count
    lb.nextIs(EcmpIndex(3), dest(5));
    EXPECT_EQ(lb.next(EcmpIndex(2)), ObjTuple());  // the gap was cleared
}

// A record from shared memory may hold any bits.
TEST(LoadBalance, ACountBeyondItsCapacityIsCaught) {
    LoadBalance lb = group(2);
    const std::uint32_t count = 17;
    std::memcpy(reinterpret_cast<char*>(&lb) + 8, &count, 4);
    EXPECT_THROW(lb.str(), Quil::RangeException);
    EXPECT_THROW(lb.nextDelAll(), Quil::RangeException);
    EXPECT_EQ(lb.next().count(), 17u);
    CiDest broken = vteps({"10.0.0.1"});
    std::memcpy(reinterpret_cast<char*>(&broken) + 12, &count, 4);
    EXPECT_THROW(broken.hash(), Quil::RangeException);
}

TEST(PodArray, SetRefusesTooMany) {
    const ObjTuple tuples[17] = {dest(1)};
    LoadBalance lb;
    lb.nextIs(16, tuples);
    EXPECT_EQ(lb.next().count(), 16u);
    try {
        lb.nextIs(17, tuples);
        FAIL();
    } catch (const Quil::InvalidSizeException& error) {
        EXPECT_EQ(std::string(error.what())
                      .find("PodArray::set expected size <= 16, instead got 17. Buffer is at address: 0x"),
                  0u);
        EXPECT_NE(std::string(error.what()).find(" with contents: 01 00 00 00"), std::string::npos);
    }
}

}  // namespace
