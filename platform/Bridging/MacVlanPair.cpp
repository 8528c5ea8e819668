#include "Bridging/MacVlanPair.h"

namespace Bridging {

void MacVlanPair::fwkParseStrep(Quil::StrepCursor& cursor) {
    const Quil::String text(cursor.word());
    const auto slash = text.find('/');
    if (slash == text.npos) throw Quil::RangeException(Quil::cat("'", text, "' is not a MAC address, '/' and a VLAN"));
    Quil::atField("ethAddr", [&] { ethAddr_ = Lanx::EthAddr(text.substr(0, slash)); });
    Quil::atField("vlanId", [&] { vlanId_ = VlanId(text.substr(slash + 1)); });
}

}  // namespace Bridging
