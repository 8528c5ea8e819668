// Network values: texts, orders, hashes and bounds.
#include "Keel/Seqno32.h"
#include "L2Rib/L2Rib.h"
#include "Tunnel/TunnelTable.h"
#include "support/Support.h"

namespace {

template <class T>
std::string roundTrip(const char* text) {
    try {
        return Quil::textOf(T(Quil::String(text)));
    } catch (const Quil::RangeException& error) {
        return std::string("! ") + error.what();
    }
}

struct TextCase {
    std::string (*read)(const char*);
    const char* text;
    const char* expected;  // the text printed again, or "! " and the error
};

TEST(NetworkValues, ReadAndPrintTheirTexts) {
    const auto vlan = roundTrip<Bridging::VlanId>;
    const auto label = roundTrip<Lanx::MplsLabel>;
    const auto tunnel = roundTrip<Tunnel::TunnelTable::TunnelId>;
    const auto intf = roundTrip<Lanx::IntfId>;
    const auto ip = roundTrip<Lanx::IpGenAddr>;
    const auto mac = roundTrip<Lanx::EthAddr>;
    const auto key = roundTrip<Bridging::MacVlanPair>;
    const char* vlanError = "! VlanId::value < 1 or > 4094 not allowed";
    const char* labelError = "! MplsLabel::value < MplsLabel::min or > MplsLabel::luWithdraw not allowed";
    const TextCase cases[] = {
        {vlan, "1", "1"},
        {vlan, "4094", "4094"},
        {vlan, "0", vlanError},
        {vlan, "4095", vlanError},
        {vlan, "70000", vlanError},
        {vlan, "-1", vlanError},
        {vlan, "99999999999999999999999", vlanError},
        {vlan, "Value('Bridging::VlanId', ** {'value': 0})", "! value: VlanId::value < 1 or > 4094 not allowed"},
        {vlan, "ten", "! 'ten' is not a number"},
        {vlan, "10 ", "! '10 ' is not a number"},
        {vlan, "Value('Bridging::VlanId', ** {'value': 10})", "10"},
        {label, "8388608", "8388608"},
        {label, "8388609", labelError},
        {tunnel, "281474976710655", "281474976710655"},
        {tunnel, "281474976710656", "! TunnelId::value < TunnelId::minValue or > TunnelId::maxValue not allowed"},
        {intf, "Ethernet7", "Ethernet7"},
        {intf, "DynamicTunnel281474976710656", "DynamicTunnel281474976710656"},
        {intf, "None", "None"},
        {intf, "6485183463413514247", "6485183463413514247"},
        {intf, "Ethernet72057594037927936", "! 'Ethernet72057594037927936' is not an interface"},
        {ip, "10.1.2.3", "10.1.2.3"},
        {ip, "2001:db8::1", "2001:db8::1"},
        {ip, "10.1.2", "! '10.1.2' is not an IP address"},
        {mac, "02:AA:aa:00:00:0f", "02:aa:aa:00:00:0f"},
        {mac, "02:aa:aa:00:00:0g", "! '02:aa:aa:00:00:0g' is not a MAC address (xx:xx:xx:xx:xx:xx)"},
        {key, "02:aa:aa:00:00:01/10", "02:aa:aa:00:00:01/10"},
        {key, "00:00:00:00:00:00/0", "! vlanId: VlanId::value < 1 or > 4094 not allowed"},
    };
    for (const auto& [read, text, expected] : cases) EXPECT_EQ(read(text), expected) << text;
}

TEST(NetworkValues, LieInMemoryAsDocumented) {
    const Bridging::MacVlanPair key("01:02:03:04:05:06/258");
    EXPECT_EQ(std::memcmp(&key, "\1\2\3\4\5\6\0\0\2\1\0\0", 12), 0);
    const Lanx::IpGenAddr ip("10.1.2.3");
    EXPECT_EQ(std::memcmp(&ip, "\0\0\0\0\12\1\2\3\0\0\0\0\0\0\0\0\0\0\0\0", 20), 0);
    EXPECT_EQ(Lanx::IntfId("Ethernet7").value(), 0x0100000000000007u);
    EXPECT_EQ(Bridging::MacVlanPair().str(), "00:00:00:00:00:00/0");
    EXPECT_EQ(Lanx::MplsLabel().value(), 0x100000u);
}

TEST(NetworkValues, OrderAndHash) {
    using Bridging::MacVlanPair;
    EXPECT_LT(MacVlanPair("02:00:00:00:00:01/20"), MacVlanPair("02:00:00:00:00:02/10"));
    EXPECT_LT(MacVlanPair("02:00:00:00:00:01/10"), MacVlanPair("02:00:00:00:00:01/20"));
    EXPECT_LT(Lanx::IpGenAddr("255.255.255.255"), Lanx::IpGenAddr("::"));
    const MacVlanPair key("02:aa:aa:00:00:01/10");
    EXPECT_EQ(key.hash(), key.ethAddr().hash() ^ 10u);
    // The finaliser of MurmurHash3, computed independently for 0x0000000000000001.
    EXPECT_EQ(Lanx::EthAddr("00:00:00:00:00:01").hash(), 0xb456bcfcu);
    EXPECT_EQ(Verro::Util::hash("a", 1), 0xca2e9442u);
    EXPECT_LT(Keel::Seqno32(1), Keel::Seqno32(0xffffffffu));
}

TEST(AttrLog, WritesNetworkOrderAndReadsItBack) {
    Quil::AttrLogWriter log;
    log.write(L2Rib::ObjTuple(L2Rib::ObjId(0x0102030405060708u), L2Rib::tableTypeDest));
    log.write(Lanx::IpGenAddr("10.0.0.2"));
    log.write(Quil::String("ab"));
    log.write(true);
    log.write(L2Rib::EcmpIndex(15));
    const std::vector<std::uint8_t> expected = {1, 2,  3, 4, 5,   6,   7, 8, 0, 0, 0, 3,                 //
                                                0, 10, 0, 0, 2,   0,   0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  //
                                                0, 0,  0, 2, 'a', 'b', 1, 15};
    EXPECT_EQ(log.bytes(), expected);
    Quil::AttrLogReader reader(log.bytes());
    EXPECT_EQ(reader.get<L2Rib::ObjTuple>().str(), "(Dest 72623859790382856)");
    EXPECT_EQ(reader.get<Lanx::IpGenAddr>(), Lanx::IpGenAddr("10.0.0.2"));
    EXPECT_EQ(reader.get<Quil::String>(), "ab");
    EXPECT_TRUE(reader.get<bool>());
    EXPECT_EQ(reader.get<L2Rib::EcmpIndex>().value(), 15);
    EXPECT_TRUE(reader.atEnd());
    EXPECT_THROW(reader.get<bool>(), Quil::RangeException);
    const std::vector<std::uint8_t> tooHigh = {16};
    EXPECT_THROW(Quil::AttrLogReader(tooHigh).get<L2Rib::EcmpIndex>(), Quil::RangeException);
}

}  // namespace
