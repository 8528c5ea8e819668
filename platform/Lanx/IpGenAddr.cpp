#include "Lanx/IpGenAddr.h"

#include <arpa/inet.h>

namespace Lanx {

IpGenAddr IpGenAddr::fromIp4(std::uint32_t address) {
    IpGenAddr out;
    const std::uint32_t wire = htonl(address);
    std::memcpy(out.bytes_.data(), &wire, 4);
    return out;
}

IpGenAddr IpGenAddr::fromIp6(const std::array<std::uint8_t, 16>& bytes) {
    IpGenAddr out;
    out.family_ = ipv6;
    out.bytes_ = bytes;
    return out;
}

IpGenAddr::IpGenAddr(const Quil::String& text) {
    if (inet_pton(AF_INET, text.c_str(), bytes_.data()) == 1) return;
    if (inet_pton(AF_INET6, text.c_str(), bytes_.data()) != 1) {
        throw Quil::RangeException(Quil::cat("'", text, "' is not an IP address"));
    }
    family_ = ipv6;
}

std::uint32_t IpGenAddr::ip4() const {
    std::uint32_t wire;
    std::memcpy(&wire, bytes_.data(), 4);
    return ntohl(wire);
}

Quil::String IpGenAddr::str() const {
    char text[INET6_ADDRSTRLEN];
    return inet_ntop(family_ == ipv4 ? AF_INET : AF_INET6, bytes_.data(), text, sizeof text);
}

void IpGenAddr::fwkWrite(Quil::AttrLogWriter& log) const {
    log.write(static_cast<std::uint8_t>(family_));
    log.writeBytes(bytes_.data(), bytes_.size());
}

void IpGenAddr::fwkRead(Quil::AttrLogReader& log) {
    const auto family = log.get<std::uint8_t>();
    if (family > ipv6) throw Quil::RangeException(Quil::cat("Lanx::AddrFamily has no enumerator ", unsigned(family)));
    family_ = static_cast<AddrFamily>(family);
    log.readBytes(bytes_.data(), bytes_.size());
}

}  // namespace Lanx
