#include "Platform/Linux/RouteNetlink.h"

#include "TarnSystem/Descriptor.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <memory>
#include <span>
#include <sys/socket.h>

namespace tarn {
namespace {

constexpr int attempts = 8;
// The kernel fills a dump's messages up to this size.
constexpr std::size_t bufferSize = 32768;

std::uint32_t number(const rtattr *attribute) {
    std::uint32_t value = 0;
    if (RTA_PAYLOAD(attribute) >= sizeof value)
        std::memcpy(&value, RTA_DATA(attribute), sizeof value);
    return value;
}

std::string text(const rtattr *attribute) {
    const auto *data = static_cast<const char *>(RTA_DATA(attribute));
    return {data, strnlen(data, RTA_PAYLOAD(attribute))};
}

std::optional<IPAddress> address(const rtattr *attribute) {
    return IPAddress::fromBytes({static_cast<const std::uint8_t *>(RTA_DATA(attribute)),
                                 static_cast<std::size_t>(RTA_PAYLOAD(attribute))});
}

/// RTA_VIA: a router of another family than the route's.
std::optional<IPAddress> viaAddress(const rtattr *attribute) {
    const auto size = static_cast<std::size_t>(RTA_PAYLOAD(attribute));
    if (size < sizeof(rtvia))
        return std::nullopt;
    return IPAddress::fromBytes(
        std::span(static_cast<const std::uint8_t *>(RTA_DATA(attribute)), size).subspan(sizeof(rtvia)));
}

template <class Visit> void forEachAttribute(const rtattr *first, std::size_t size, Visit visit) {
    auto length = static_cast<int>(size);
    for (const auto *attribute = first; RTA_OK(attribute, length); attribute = RTA_NEXT(attribute, length))
        visit(attribute, attribute->rta_type & NLA_TYPE_MASK);
}

template <class Visit> void forEachAttribute(const rtattr *nest, Visit visit) {
    forEachAttribute(static_cast<const rtattr *>(RTA_DATA(nest)), static_cast<std::size_t>(RTA_PAYLOAD(nest)),
                     visit);
}

void addLink(NetworkPicture &picture, const nlmsghdr *message) {
    const auto *info = static_cast<const ifinfomsg *>(NLMSG_DATA(message));
    auto &link = picture.links.emplace_back();
    link.index = static_cast<unsigned>(info->ifi_index);
    link.hardwareType = info->ifi_type;
    link.isLoopback = (info->ifi_flags & IFF_LOOPBACK) != 0;
    link.hasCarrier = (info->ifi_flags & IFF_LOWER_UP) != 0;
    forEachAttribute(IFLA_RTA(info), IFLA_PAYLOAD(message), [&](const rtattr *attribute, int type) {
        if (type == IFLA_IFNAME)
            link.name = text(attribute);
        else if (type == IFLA_IFALIAS)
            link.alias = text(attribute);
        else if (type == IFLA_CARRIER_CHANGES)
            link.carrierChanges = number(attribute);
        else if (type == IFLA_MASTER)
            link.master = number(attribute);
        else if (type == IFLA_LINKINFO)
            forEachAttribute(attribute, [&](const rtattr *nested, int nestedType) {
                if (nestedType == IFLA_INFO_KIND)
                    link.linkKind = text(nested);
            });
    });
}

void addAddress(NetworkPicture &picture, const nlmsghdr *message) {
    const auto *info = static_cast<const ifaddrmsg *>(NLMSG_DATA(message));
    NetworkPicture::Address entry;
    entry.link = info->ifa_index;
    entry.prefixLength = info->ifa_prefixlen;
    entry.flags = info->ifa_flags;
    std::optional<IPAddress> own;
    forEachAttribute(IFA_RTA(info), IFA_PAYLOAD(message), [&](const rtattr *attribute, int type) {
        // On a point-to-point link IFA_ADDRESS is the peer's.
        if (type == IFA_LOCAL || (type == IFA_ADDRESS && !own))
            own = address(attribute);
        else if (type == IFA_FLAGS)
            entry.flags = number(attribute);
    });
    if (!own)
        return;
    entry.address = *own;
    picture.addresses.push_back(entry);
}

void addRoute(NetworkPicture &picture, const nlmsghdr *message) {
    const auto *info = static_cast<const rtmsg *>(NLMSG_DATA(message));
    const bool isIPv6 = info->rtm_family == AF_INET6;
    if (info->rtm_dst_len != 0 || info->rtm_type != RTN_UNICAST || (!isIPv6 && info->rtm_family != AF_INET))
        return;
    NetworkPicture::DefaultRoute route;
    route.isIPv6 = isIPv6;
    std::uint32_t table = info->rtm_table;
    std::optional<IPAddress> gateway;
    const auto readGateway = [&](const rtattr *attribute, int type) {
        if (type == RTA_GATEWAY)
            gateway = address(attribute);
        else if (type == RTA_VIA)
            gateway = viaAddress(attribute);
    };
    const auto add = [&](unsigned flags) {
        if (gateway && (flags & RTNH_F_DEAD) == 0 && table == RT_TABLE_MAIN) {
            route.gateway = *gateway;
            picture.defaultRoutes.push_back(route);
        }
    };
    const rtattr *hops = nullptr;
    forEachAttribute(RTM_RTA(info), RTM_PAYLOAD(message), [&](const rtattr *attribute, int type) {
        readGateway(attribute, type);
        if (type == RTA_TABLE)
            table = number(attribute);
        else if (type == RTA_OIF)
            route.link = number(attribute);
        else if (type == RTA_PRIORITY)
            route.metric = number(attribute);
        else if (type == RTA_MULTIPATH)
            hops = attribute;
    });
    if (!hops) {
        add(info->rtm_flags);
        return;
    }
    auto remaining = static_cast<int>(RTA_PAYLOAD(hops));
    for (const auto *hop = static_cast<const rtnexthop *>(RTA_DATA(hops)); RTNH_OK(hop, remaining);
         remaining -= RTNH_ALIGN(hop->rtnh_len), hop = RTNH_NEXT(hop)) {
        gateway.reset();
        forEachAttribute(RTNH_DATA(hop), hop->rtnh_len - sizeof *hop, readGateway);
        route.link = static_cast<unsigned>(hop->rtnh_ifindex);
        add(hop->rtnh_flags);
    }
}

/// A socket that hears of every change of links, addresses and routes; none when it cannot be had.
Descriptor openListening(int flags) {
    Descriptor descriptor(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | flags, NETLINK_ROUTE));
    sockaddr_nl own{};
    own.nl_family = AF_NETLINK;
    own.nl_groups =
        RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE;
    if (bind(descriptor.get(), reinterpret_cast<const sockaddr *>(&own), sizeof own) != 0)
        return Descriptor();
    return descriptor;
}

/// Whether news may be of something that is read. Routers take in routes by the thousand, and
/// radios report each of their scans as news of their link.
bool mayMatter(const nlmsghdr *message) {
    if (message->nlmsg_type == RTM_NEWROUTE || message->nlmsg_type == RTM_DELROUTE)
        return static_cast<const rtmsg *>(NLMSG_DATA(message))->rtm_dst_len == 0;
    if (message->nlmsg_type != RTM_NEWLINK)
        return true;
    bool isWirelessEvent = false;
    forEachAttribute(IFLA_RTA(NLMSG_DATA(message)), IFLA_PAYLOAD(message),
                     [&](const rtattr *, int type) { isWirelessEvent |= type == IFLA_WIRELESS; });
    return !isWirelessEvent;
}

/// One attempt: a socket that listens for changes while it asks for the three lists.
class Reading {
public:
    explicit Reading(NetworkPicture &picture) : picture_(picture) {}

    bool isDisturbed() const { return isDisturbed_; }

    bool run() {
        if (!openSocket())
            return false;
        struct {
            ifinfomsg info;
            rtattr header;
            std::uint32_t mask;
        } links{};
        // Counters make up most of a link's message and are not wanted.
        links.header = {RTA_LENGTH(sizeof links.mask), IFLA_EXT_MASK};
        links.mask = RTEXT_FILTER_SKIP_STATS;
        rtmsg routes{};
        routes.rtm_table = RT_TABLE_MAIN;
        routes.rtm_type = RTN_UNICAST;
        picture_.links.clear();
        picture_.addresses.clear();
        picture_.defaultRoutes.clear();
        if (!dump(RTM_GETLINK, links) || !dump(RTM_GETADDR, ifaddrmsg{}) || !dump(RTM_GETROUTE, routes))
            return false;
        // Whatever changed meanwhile has been announced by now.
        if (recv(socket_.get(), buffer_.get(), bufferSize, MSG_DONTWAIT) >= 0 || errno == ENOBUFS)
            isDisturbed_ = true;
        return true;
    }

private:
    bool openSocket() {
        socket_ = openListening(0);
        if (!socket_)
            return false;
        // With strict checking the kernel filters routes by table and type.
        const int on = 1;
        setsockopt(socket_.get(), SOL_NETLINK, NETLINK_GET_STRICT_CHK, &on, sizeof on);
        return true;
    }

    template <class Body> bool dump(std::uint16_t type, const Body &body) {
        struct {
            nlmsghdr header;
            Body body;
        } request{};
        request.header.nlmsg_len = sizeof request;
        request.header.nlmsg_type = type;
        request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
        request.header.nlmsg_seq = ++sequence_;
        request.body = body;
        if (::send(socket_.get(), &request, sizeof request, 0) < 0)
            return false;
        for (;;) {
            sockaddr_nl sender{};
            socklen_t senderSize = sizeof sender;
            const auto size = recvfrom(socket_.get(), buffer_.get(), bufferSize, 0,
                                       reinterpret_cast<sockaddr *>(&sender), &senderSize);
            if (size < 0 && errno == EINTR)
                continue;
            if (size < 0 && errno == ENOBUFS) {
                // So many changes that some news of them were dropped; the dump goes on.
                isDisturbed_ = true;
                continue;
            }
            if (size <= 0)
                return false;
            if (sender.nl_groups != 0) {
                // News of a change; the sequence number in it is somebody else's.
                isDisturbed_ = true;
                continue;
            }
            switch (take(static_cast<std::size_t>(size))) {
            case Progress::more:
                break;
            case Progress::done:
                return true;
            case Progress::failed:
                return false;
            }
        }
    }

    enum class Progress { more, done, failed };

    Progress take(std::size_t size) {
        auto remaining = size;
        for (const auto *message = reinterpret_cast<const nlmsghdr *>(buffer_.get());
             NLMSG_OK(message, remaining); message = NLMSG_NEXT(message, remaining)) {
            if (message->nlmsg_seq != sequence_)
                continue;
            if (message->nlmsg_flags & NLM_F_DUMP_INTR)
                isDisturbed_ = true;
            switch (message->nlmsg_type) {
            case NLMSG_DONE:
                // The end of a dump carries its result.
                return message->nlmsg_len >= NLMSG_LENGTH(sizeof(int)) &&
                               *static_cast<const int *>(NLMSG_DATA(message)) < 0
                           ? Progress::failed
                           : Progress::done;
            case NLMSG_ERROR:
                return Progress::failed;
            case RTM_NEWLINK:
                addLink(picture_, message);
                break;
            case RTM_NEWADDR:
                addAddress(picture_, message);
                break;
            case RTM_NEWROUTE:
                addRoute(picture_, message);
                break;
            default:
                break;
            }
        }
        return Progress::more;
    }

    NetworkPicture &picture_;
    Descriptor socket_;
    std::unique_ptr<char[]> buffer_{new char[bufferSize]};
    std::uint32_t sequence_ = 0;
    bool isDisturbed_ = false;
};

} // namespace

RouteNetlink::Result RouteNetlink::read(NetworkPicture &picture) {
    for (int attempt = 0; attempt < attempts; ++attempt) {
        Reading reading(picture);
        if (!reading.run())
            return Result::failed;
        if (!reading.isDisturbed())
            return Result::settled;
    }
    return Result::unsettled;
}

Descriptor RouteNetlink::subscribe() {
    return openListening(SOCK_NONBLOCK);
}

bool RouteNetlink::takeNews(const Descriptor &subscription) {
    constexpr int mostMessages = 256;
    const std::unique_ptr<char[]> buffer(new char[bufferSize]);
    bool isWorthReading = false;
    for (int i = 0; i < mostMessages; ++i) {
        const auto size = recv(subscription.get(), buffer.get(), bufferSize, MSG_TRUNC);
        if (size < 0 && errno == EINTR)
            continue;
        if (size < 0 && errno != ENOBUFS)
            break;
        // What was dropped or cut may have been anything.
        isWorthReading = isWorthReading || size < 0 || static_cast<std::size_t>(size) > bufferSize;
        auto remaining = static_cast<std::size_t>(std::max<ssize_t>(size, 0));
        for (const auto *message = reinterpret_cast<const nlmsghdr *>(buffer.get());
             !isWorthReading && NLMSG_OK(message, remaining); message = NLMSG_NEXT(message, remaining))
            isWorthReading = mayMatter(message);
    }
    return isWorthReading;
}

} // namespace tarn
