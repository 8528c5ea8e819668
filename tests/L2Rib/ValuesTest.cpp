// Identifiers, tuples and destinations: exact texts, hashes, orders and the stops of misuse.
#include "L2Rib/L2Rib.h"
#include "Quil/Trace.h"
#include "support/Support.h"

namespace {

using namespace L2Rib;

const ObjTuple dest7(ObjId(7), tableTypeDest);

TEST(Source, NamesNumbersAndMasks) {
    EXPECT_EQ(stringValue(sourceBgpEvpnMpls), "sourceBgpEvpnMpls");
    EXPECT_EQ(SourceInstance(0x80000000u), sourceTestProto4);
    EXPECT_EQ(SourceInstance("sourceAll"), sourceAll);
    EXPECT_EQ(SourceDecoder::sourceFromEnum(3) & sourceAll, 3u);
    EXPECT_EQ(stringValue(SourceDecoder::sourceFromEnum(3)), "3");
    EXPECT_THROW(SourceInstance(3), Quil::RangeException);
    EXPECT_THROW(TableTypeInstance("tableTypeNone"), Quil::RangeException);
    EXPECT_EQ(Quil::cat(DestTypeInstance(4), FloodSetTypeInstance("floodSetTypeAny")), "destTypeCpufloodSetTypeAny");
}

TEST(ObjTuple, HashesAsTablesOfOtherBuildsDo) {
    EXPECT_EQ(DestId(7).hash(), 0x5eb2c598u);
    EXPECT_EQ(dest7.hash(), 0x5399de32u);
    EXPECT_EQ(ObjTupleAndSource(dest7, sourceBgpEvpnMpls).hash(), 0x2612f930u);
    EXPECT_NE(ObjTuple(ObjId(7), tableTypeLabel).hash(), dest7.hash());
}

TEST(ObjTuple, PrintsItsForms) {
    EXPECT_EQ(dest7.str(), "(Dest 7)");
    EXPECT_EQ(ObjTuple().str(), "(INVALID INVALID)");
    EXPECT_EQ(ObjTuple(ObjId(0), tableTypeDest).strNoTrailParen(), "(Dest INVALID");
    EXPECT_EQ(ObjTuple(ObjId(9), static_cast<TableType>(4)).str(), " 9)");
    EXPECT_EQ(ObjTupleAndSource(ObjTuple(ObjId(5), tableTypeLoadBalance), sourceBgp).str(), "(LB 5 sourceBgp)");
    const auto text = Quil::valueToStrep(ObjTupleAndSource(dest7, sourceBgp));
    EXPECT_EQ(text,
              "Value('L2Rib::ObjTupleAndSource', ** {'objTuple': Value('L2Rib::ObjTuple', ** {'objId': 7, 'tableType': "
              "tableTypeDest}), 'source': sourceBgp})");
    EXPECT_EQ(ObjTupleAndSource(text), ObjTupleAndSource(dest7, sourceBgp));
}

TEST(ObjTuple, IsValidWithinTheAllocatableRange) {
    const std::pair<std::uint64_t, bool> cases[] = {
        {0, false}, {1, true}, {0xFFFFFFFFFFFF0000u, true}, {0xFFFFFFFFFFFF0001u, false}, {~std::uint64_t(0), false}};
    for (const auto& [id, valid] : cases) {
        EXPECT_EQ(ObjTuple(ObjId(id), tableTypeDest).isValid(), valid) << id;
        EXPECT_FALSE(ObjTuple(ObjId(id), tableTypeInvalid).isValid());
    }
}

TEST(ObjTuple, OrdersByIdentifierThenSignedTableTypeThenUnsignedSource) {
    EXPECT_LT(ObjTuple(ObjId(1), tableTypeDest), ObjTuple(ObjId(2), tableTypeLoadBalance));
    EXPECT_LT(ObjTuple(ObjId(1), static_cast<TableType>(-1)), ObjTuple(ObjId(1), tableTypeInvalid));
    EXPECT_LT(ObjTupleAndSource(dest7, sourceBgp), ObjTupleAndSource(dest7, sourceTestProto4));
}

TEST(ObjTupleDeathTest, StopsWhenAskedForAnotherTablesIdentifier) {
    EXPECT_EQ(dest7.destId(), DestId(7));
    EXPECT_DEATH(dest7.lbId(),
                 "src-includes/L2Rib/L2Rib: .*lbId.*: Assertion `tableType\\(\\) == "
                 "tableTypeLoadBalance_' failed\\.");
    EXPECT_DEATH(dest7.labelId(), "`tableType\\(\\) == tableTypeLabel_'");
    EXPECT_DEATH(ObjTuple().destId(), "`tableType\\(\\) == tableTypeDest_'");
}

TEST(EcmpIndex, ChecksTextButNotArithmetic) {
    EXPECT_EQ((EcmpIndex(15) + EcmpIndex(1)).value(), 16);
    EXPECT_EQ((EcmpIndex(200) + EcmpIndex(100)).value(), 44);
    EXPECT_EQ(EcmpIndex("15").value(), 15);
    try {
        EcmpIndex("16");
        FAIL();
    } catch (const Quil::RangeException& error) {
        EXPECT_STREQ(error.what(), "EcmpIndex::value < EcmpIndex::min or > EcmpIndex::max not allowed");
    }
    EXPECT_THROW(CiVtepIndex(2), Quil::RangeException);
}

TEST(ObjTupleSet, WritesItsMembersAndATerminator) {
    ObjTupleSet set;
    EXPECT_TRUE(!set);
    set.newOt(dest7, true);
    Quil::AttrLogWriter log;
    log.write(set);
    EXPECT_EQ(log.bytes().size(), 12u + 1u + 12u);
    Quil::AttrLogReader reader(log.bytes());
    EXPECT_EQ(reader.get<ObjTupleSet>(), set);
}

TEST(ObjTupleSetDeathTest, HasNoTextAndNoDefaultMember) {
    EXPECT_DEATH(ObjTupleSet("x"), "`!\"No String constructor for ObjTupleSet - has collection\"'");
    ObjTupleSet set;
    set.newOt(ObjTuple(), true);
    Quil::AttrLogWriter log;
    EXPECT_DEATH(log.write(set), "Default key not supported in collection inside nominal");
}

const Lanx::IntfId eth7("Ethernet7"), tunnel5("DynamicTunnel5");

TEST(Dest, PacksPrintsAndReadsEveryKind) {
    Dest cpu;
    cpu.destTypeIs(destTypeCpu);
    const struct {
        Dest dest;
        std::uint64_t storage0;
        std::uint32_t storage1;
        const char* text;
    } cases[] = {
        {Dest(), 0, 0, "(id: 0 destTypeIntf data: None)"},
        {Dest(DestId(1), DestDataIntf(eth7)), 0x0100000000000007u, 0, "(id: 1 destTypeIntf data: Ethernet7)"},
        {Dest(DestId(2), DestDataVxlan(Lanx::IpGenAddr("10.1.2.3"))), 0x0302010Au, 0,
         "(id: 2 destTypeVxlan data: 10.1.2.3)"},
        {Dest(DestId(3), DestDataMpls(eth7, Lanx::MplsLabel(77))), 0x0100000000000007u, 77,
         "(id: 3 destTypeMpls data: Ethernet7 77)"},
        {Dest(DestId(3), DestDataMpls(tunnel5, Lanx::MplsLabel(77))), 0x0200000000000005u, 77,
         "(id: 3 destTypeMpls data: 5 77)"},
        {Dest(DestId(4), DestDataTunnel(eth7)), 0x0100000000000007u, 0, "(id: 4 destTypeTunnel data: Ethernet7)"},
        {Dest(DestId(4), DestDataTunnel(tunnel5)), 0x0200000000000005u, 0, "(id: 4 destTypeTunnel data:  5)"},
        {cpu, 0, 0, "(id: 0 destTypeCpu data: )"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.dest.storage0(), c.storage0) << c.text;
        EXPECT_EQ(c.dest.storage1(), c.storage1) << c.text;
        EXPECT_EQ(c.dest.str(), c.text);
        EXPECT_EQ(Dest(Quil::valueToStrep(c.dest)), c.dest) << c.text;
        Dest copy;
        copy.copyAllButKey(c.dest);
        EXPECT_TRUE(copy.equalExceptKey(c.dest)) << c.text;
    }
}

TEST(Dest, ComparesUnpackedVariantsOnly) {
    Dest a(DestId(1), DestDataIntf(eth7)), b = a;
    b.storage1Is(99);  // stale storage is invisible
    EXPECT_EQ(a, b);
    EXPECT_EQ(a.hash(), b.hash());
    Dest tunnel(DestId(1), DestDataTunnel(eth7));
    EXPECT_EQ(tunnel.hash(), a.hash());
    EXPECT_LT(a, tunnel);
    Dest cpu1, cpu2;
    cpu1.destTypeIs(destTypeCpu);
    cpu2 = cpu1;
    cpu2.storage0Is(5);
    EXPECT_EQ(cpu1, cpu2);
    EXPECT_FALSE(cpu1 < cpu2 || cpu2 < cpu1);
    b.intfIs(DestDataIntf(eth7));
    EXPECT_EQ(b.storage1(), 0u);
    Dest mpls(DestId(1), DestDataMpls(eth7, Lanx::MplsLabel(77)));
    mpls.storageIsZero();
    EXPECT_EQ(mpls.mpls().label().value(), 0u);
    mpls.storage1Is(0x800001);
    EXPECT_THROW((void)(mpls == mpls), Quil::RangeException);
}

TEST(Dest, ARangeErrorNamesItsField) {
    try {
        Dest("Value('L2Rib::Dest', ** {'key': 1, 'storage0': 0, 'storage1': 0, 'destType': nothing})");
        FAIL();
    } catch (const Quil::RangeException& error) {
        EXPECT_EQ(error.field(), "destType");
    }
}

TEST(Dest, TracesItsComparisons) {
    std::string line;
    Quil::Trace::sinkIs([&](const Quil::String&, int, const Quil::String& text) { line = text; });
    Quil::Trace::defaultHandle().levelIs(9);
    (void)(Dest(DestId(1), DestDataIntf(eth7)) < Dest());
    Quil::Trace::defaultHandle().levelIs(0);
    EXPECT_EQ(line,
              "bool L2Rib::Dest::operator<(const L2Rib::Dest&) const for (id: 0 destTypeIntf data: None) and "
              "(id: 1 destTypeIntf data: Ethernet7)");
}

TEST(DestDeathTest, StopsOnTheWrongKind) {
    Dest dest(DestId(1), DestDataIntf(eth7));
    EXPECT_DEATH(dest.vxlan(), "`destType\\(\\) == destTypeVxlan_'");
    EXPECT_DEATH(dest.vxlanIs(DestDataVxlan(Lanx::IpGenAddr("::1"))),
                 "`vxlan\\.vtepAddr\\(\\)\\.af\\(\\) == Lanx::ipv4_'");
    dest.destTypeIs(static_cast<DestType>(9));
    EXPECT_DEATH(dest.hash(), "unreachable");
}

}  // namespace
