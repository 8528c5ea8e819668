#include "Lanx/IntfId.h"

namespace Lanx {
namespace {
struct KindName {
    IntfId::Kind kind;
    std::string_view name;
};
constexpr KindName kindNames[] = {
    {IntfId::ethernet, "Ethernet"}, {IntfId::dynamicTunnel, "DynamicTunnel"}, {IntfId::vxlan, "Vxlan"}};
}  // namespace

IntfId::IntfId(const Quil::String& text) {
    std::uint64_t number = 0;
    if (text == "None") return;
    if (Quil::parseNumber(text, number)) {
        value_ = number;
        return;
    }
    for (const auto& [kind, name] : kindNames) {
        if (text.starts_with(name) && Quil::parseNumber(std::string_view(text).substr(name.size()), number) &&
            number <= payloadMask) {
            *this = IntfId(kind, number);
            return;
        }
    }
    throw Quil::RangeException(Quil::cat("'", text, "' is not an interface"));
}

Quil::String IntfId::str() const {
    if (value() == 0) return "None";
    for (const auto& [known, name] : kindNames) {
        if (known == kind()) return Quil::cat(name, payload());
    }
    return Quil::cat(value());
}

}  // namespace Lanx
