#include "common/Netlink.h"

#include <linux/if_link.h>
#include <linux/nexthop.h>

#include <cerrno>
#include <vector>

#include "Quil/Exception.h"

namespace Netlink {

void fail(const char* operation) {
    throw Quil::SystemException(Quil::cat("netlink: ", operation, ": ", std::strerror(errno)));
}

Socket open(unsigned groups, const std::vector<int>& moreGroups) {
    constexpr int receiveBuffer = 16 << 20;  // bytes
    Socket socket(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC));
    if (!socket) fail("socket");
    const int fd = mnl_socket_get_fd(socket.get());
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &receiveBuffer, sizeof receiveBuffer) != 0) {
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    }
    if (mnl_socket_bind(socket.get(), groups, MNL_SOCKET_AUTOPID) != 0) fail("bind");
    for (int group : moreGroups) {
        mnl_socket_setsockopt(socket.get(), NETLINK_ADD_MEMBERSHIP, &group, sizeof group);
    }
    return socket;
}

namespace {

std::size_t receive(mnl_socket* socket, std::vector<char>& buffer, const char* operation) {
    for (;;) {
        const ssize_t size = mnl_socket_recvfrom(socket, buffer.data(), buffer.size());
        if (size >= 0) return static_cast<std::size_t>(size);
        if (errno != EINTR) fail(operation);
    }
}

// Calls visit(message) for each until it returns false; whether all were visited.
template <class F>
bool forEachMessage(const std::vector<char>& buffer, std::size_t size, F&& visit) {
    int left = static_cast<int>(size);
    for (auto* message = reinterpret_cast<const nlmsghdr*>(buffer.data()); mnl_nlmsg_ok(message, left);
         message = mnl_nlmsg_next(message, &left)) {
        if (!visit(message)) return false;
    }
    return true;
}

int errorIn(const nlmsghdr* message) { return -static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(message))->error; }

}  // namespace

bool dump(std::uint16_t type, std::uint8_t family, const Visit& visit) {
    const Socket socket = open(0);
    std::vector<char> buffer(packetSize);
    nlmsghdr* request = mnl_nlmsg_put_header(buffer.data());
    request->nlmsg_type = type;
    request->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request->nlmsg_seq = 1;
    if (type == RTM_GETLINK) {
        static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(request, sizeof(ifinfomsg)))->ifi_family = family;
    } else if (type == RTM_GETNEXTHOP) {
        static_cast<nhmsg*>(mnl_nlmsg_put_extra_header(request, sizeof(nhmsg)))->nh_family = family;
    } else {
        static_cast<ndmsg*>(mnl_nlmsg_put_extra_header(request, sizeof(ndmsg)))->ndm_family = family;
    }
    if (mnl_socket_sendto(socket.get(), request, request->nlmsg_len) < 0) fail("dump request");
    bool whole = true;
    const auto handle = [&](const nlmsghdr* message) {
        if (message->nlmsg_flags & NLM_F_DUMP_INTR) whole = false;
        if (message->nlmsg_type == NLMSG_DONE) {
            // The end of a dump may carry an error.
            std::int32_t error = 0;
            if (mnl_nlmsg_get_payload_len(message) >= sizeof error) {
                std::memcpy(&error, mnl_nlmsg_get_payload(message), sizeof error);
            }
            whole = whole && error >= 0;
            return false;
        }
        if (message->nlmsg_type == NLMSG_ERROR) {
            errno = errorIn(message);
            if (errno == EOPNOTSUPP) return false;
            fail("dump");
        }
        visit(message);
        return true;
    };
    while (forEachMessage(buffer, receive(socket.get(), buffer, "dump"), handle)) {
    }
    return whole;
}

int request(mnl_socket* socket, nlmsghdr* message, const Visit& answer) {
    static std::uint32_t sequence = 0;
    message->nlmsg_flags |= NLM_F_REQUEST | NLM_F_ACK;
    message->nlmsg_seq = ++sequence;
    if (mnl_socket_sendto(socket, message, message->nlmsg_len) < 0) fail("request");
    std::vector<char> buffer(packetSize);
    int error = 0;
    const auto handle = [&](const nlmsghdr* reply) {
        if (reply->nlmsg_seq != sequence) return true;  // of an older request
        if (reply->nlmsg_type != NLMSG_ERROR) {
            if (answer) answer(reply);
            return true;
        }
        error = errorIn(reply);
        return false;
    };
    while (forEachMessage(buffer, receive(socket, buffer, "request"), handle)) {
    }
    return error;
}

std::optional<Lanx::IpGenAddr> addressIn(const nlattr* attribute) {
    if (!attribute) return std::nullopt;
    const void* bytes = mnl_attr_get_payload(attribute);
    if (mnl_attr_get_payload_len(attribute) == 4) {
        std::uint32_t wire;
        std::memcpy(&wire, bytes, 4);
        return Lanx::IpGenAddr::fromIp4(__builtin_bswap32(wire));
    }
    if (mnl_attr_get_payload_len(attribute) != 16) return std::nullopt;
    std::array<std::uint8_t, 16> address;
    std::memcpy(address.data(), bytes, 16);
    return Lanx::IpGenAddr::fromIp6(address);
}

std::vector<std::uint32_t> groupMembersIn(const nlattr* attribute) {
    std::vector<std::uint32_t> members;
    const auto* bytes = static_cast<const char*>(mnl_attr_get_payload(attribute));
    for (std::size_t at = 0; at + sizeof(nexthop_grp) <= mnl_attr_get_payload_len(attribute);
         at += sizeof(nexthop_grp)) {
        nexthop_grp member;
        std::memcpy(&member, bytes + at, sizeof member);
        members.push_back(member.id);
    }
    return members;
}

bool isVxlan(const nlattr* linkInfo) {
    const Attributes<IFLA_INFO_DATA + 1> info(linkInfo);
    return info.at[IFLA_INFO_KIND] && std::string_view(mnl_attr_get_str(info.at[IFLA_INFO_KIND])) == "vxlan";
}

const nlattr* vxlanData(const nlattr* linkInfo) {
    return isVxlan(linkInfo) ? Attributes<IFLA_INFO_DATA + 1>(linkInfo).at[IFLA_INFO_DATA] : nullptr;
}

}  // namespace Netlink
