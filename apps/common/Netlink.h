// Netlink.h: what programs need of rtnetlink: sockets, dumps, requests, attributes.
//
// Threads   Each socket belongs to one thread. Dumps and requests block for the time the kernel takes.
// Errors    SystemException where netlink is not to be had.
#pragma once

#include <libmnl/libmnl.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>

#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "Lanx/EthAddr.h"
#include "Lanx/IpGenAddr.h"

namespace Netlink {

constexpr std::size_t packetSize = 32768;  // the most the kernel puts into one packet of a dump

[[noreturn]] void fail(const char* operation);  // with errno

struct Close {
    void operator()(mnl_socket* socket) const { mnl_socket_close(socket); }
};
using Socket = std::unique_ptr<mnl_socket, Close>;
// groups: a mask of RTMGRP_*; moreGroups: numbers of RTNLGRP_* that the mask has no bit for, where the kernel has them.
Socket open(unsigned groups, const std::vector<int>& moreGroups = {});

// Everything of this type and family, or nothing where the kernel does not know the type. False when it was
// interrupted: then some of it may be missing.
using Visit = std::function<void(const nlmsghdr*)>;
bool dump(std::uint16_t type, std::uint8_t family, const Visit& visit);

// Sends the request and returns the kernel's errno, 0 for success. answer is called for what comes before that.
int request(mnl_socket* socket, nlmsghdr* message, const Visit& answer = {});

// Calls visit(attribute) for each attribute between the two ends.
template <class F>
void forEachAttribute(const void* first, const void* end, F&& visit) {
    const auto left = [&](const nlattr* at) {
        return static_cast<int>(static_cast<const char*>(end) - reinterpret_cast<const char*>(at));
    };
    for (auto* at = static_cast<const nlattr*>(first); mnl_attr_ok(at, left(at)); at = mnl_attr_next(at)) visit(at);
}

// The attributes of a message, or those nested in one, by number; null for one that is absent.
template <std::size_t N>
struct Attributes {
    const nlattr* at[N] = {};
    Attributes(const nlmsghdr* message, unsigned headerSize) {
        take(mnl_nlmsg_get_payload_offset(message, headerSize), mnl_nlmsg_get_payload_tail(message));
    }
    explicit Attributes(const nlattr* nest) {
        if (!nest) return;
        const auto* first = static_cast<const char*>(mnl_attr_get_payload(nest));
        take(first, first + mnl_attr_get_payload_len(nest));
    }
    bool holds(std::size_t type, std::size_t size) const {
        return at[type] && mnl_attr_get_payload_len(at[type]) >= size;
    }
    std::uint32_t u32(std::size_t type) const { return holds(type, 4) ? mnl_attr_get_u32(at[type]) : 0; }
    std::uint16_t u16(std::size_t type) const { return holds(type, 2) ? mnl_attr_get_u16(at[type]) : std::uint16_t(0); }
    std::uint8_t u8(std::size_t type) const { return holds(type, 1) ? mnl_attr_get_u8(at[type]) : std::uint8_t(0); }
    Lanx::EthAddr mac(std::size_t type) const {
        std::array<std::uint8_t, 6> bytes{};
        if (holds(type, 6)) std::memcpy(bytes.data(), mnl_attr_get_payload(at[type]), 6);
        return Lanx::EthAddr(bytes);
    }

 private:
    void take(const void* first, const void* end) {
        forEachAttribute(first, end, [&](const nlattr* attribute) {
            if (mnl_attr_get_type(attribute) < N) at[mnl_attr_get_type(attribute)] = attribute;
        });
    }
};

// An address of 4 or 16 bytes.
std::optional<Lanx::IpGenAddr> addressIn(const nlattr* attribute);

// The identifiers in NHA_GROUP.
std::vector<std::uint32_t> groupMembersIn(const nlattr* attribute);

// IFLA_INFO_DATA of a VXLAN device's IFLA_LINKINFO; null for another kind of device.
const nlattr* vxlanData(const nlattr* linkInfo);
bool isVxlan(const nlattr* linkInfo);

}  // namespace Netlink
