#include "virtualboard/live/liveprivileges.h"

#include <QCoreApplication>
#include <QDir>
#include <QScopeGuard>
#include <QSet>
#include <QStringList>

#include <array>
#include <cerrno>
#include <cstring>

#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace virtualboard {

namespace {

/// Adds the indices of the interfaces of a default route, which may have several. Returns an error
/// number if the route does not tell them, else 0, also for everything that is no default route.
int addDefaultRoute(const nlmsghdr *message, QSet<unsigned> *indices)
{
    const auto *const route = static_cast<const rtmsg *>(NLMSG_DATA(message));
    if (message->nlmsg_type != RTM_NEWROUTE || message->nlmsg_len < NLMSG_LENGTH(sizeof *route)
        || route->rtm_dst_len != 0 || route->rtm_type != RTN_UNICAST)
        return 0;
    int error = ENODATA;
    auto left = int(RTM_PAYLOAD(message));
    for (const rtattr *each = RTM_RTA(route); RTA_OK(each, left); each = RTA_NEXT(each, left)) {
        if (each->rta_type == RTA_OIF) {
            indices->insert(*static_cast<const unsigned *>(RTA_DATA(each)));
            error = 0;
        }
        if (each->rta_type == RTA_MULTIPATH) {
            auto size = int(RTA_PAYLOAD(each));
            for (auto *hop = static_cast<const rtnexthop *>(RTA_DATA(each));
                 size >= int(sizeof *hop) && RTNH_OK(hop, size); hop = RTNH_NEXT(hop)) {
                indices->insert(unsigned(hop->rtnh_ifindex));
                size -= int(RTNH_ALIGN(hop->rtnh_len));
                error = 0;
            }
        }
    }
    return error;
}

/// Adds the indices of the interfaces that have a default route in any table of this address
/// family; the kernel tells all its routes (rtnetlink(7)). Returns an error number, or 0.
int addDefaultRoutes(int family, QSet<unsigned> *indices)
{
    const int socket = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (socket < 0)
        return errno;
    const auto closing = qScopeGuard([socket] { close(socket); });
    struct
    {
        nlmsghdr header;
        rtmsg route;
    } request = {};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = RTM_GETROUTE;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.route.rtm_family = uchar(family);
    if (send(socket, &request, sizeof request, 0) < 0)
        return errno;
    for (;;) {
        alignas(nlmsghdr) std::array<char, 1 << 16> bytes; // the kernel sends at most 32 KiB
        const ssize_t size = recv(socket, bytes.data(), bytes.size(), 0);
        if (size < 0)
            return errno;
        auto left = int(size);
        for (auto *each = reinterpret_cast<const nlmsghdr *>(bytes.data());
             NLMSG_OK(each, unsigned(left)); each = NLMSG_NEXT(each, left)) {
            if ((each->nlmsg_flags & NLM_F_DUMP_INTR) != 0)
                return EAGAIN; // the routes have changed meanwhile
            if (each->nlmsg_type == NLMSG_DONE || each->nlmsg_type == NLMSG_ERROR)
                return -*static_cast<const int *>(NLMSG_DATA(each));
            if (const int error = addDefaultRoute(each, indices))
                return error;
        }
    }
}

/// The interface, what it is built upon, what is built upon it (a bridge, a bond, a VLAN), and so
/// on: all that may share a wire.
QStringList connectedInterfaces(const QString &interface)
{
    QStringList found = {interface};
    for (int i = 0; i < found.size(); ++i) {
        const QStringList links =
            QDir(QStringLiteral("/sys/class/net/") + found.at(i)).entryList({"upper_*", "lower_*"});
        for (const QString &link : links) {
            const QString name = link.section(QLatin1Char('_'), 1);
            if (!found.contains(name))
                found << name;
        }
    }
    return found;
}

} // namespace

QString missingCapability(int capability)
{
    struct Need
    {
        int capability;
        const char *what;
        const char *grant;
    };
    static constexpr Need kNeeds[] = {
        {CAP_NET_RAW, "Frames on a network interface need CAP_NET_RAW", "cap_net_raw"},
        {CAP_SYS_NICE, "Real-time scheduling needs CAP_SYS_NICE",
         "cap_net_raw,cap_sys_nice,cap_ipc_lock"},
        {CAP_IPC_LOCK, "Locking the memory for real-time scheduling needs CAP_IPC_LOCK",
         "cap_net_raw,cap_sys_nice,cap_ipc_lock"},
    };
    for (const Need &need : kNeeds) {
        if (need.capability == capability)
            return QStringLiteral("%1: run the program as root, or grant it once with "
                                  "\"sudo setcap %2+ep %3\".")
                .arg(QString::fromLatin1(need.what), QString::fromLatin1(need.grant),
                     QCoreApplication::applicationFilePath());
    }
    Q_UNREACHABLE();
}

bool giveUpCapabilities(bool locksMemory, const NoticeHandler &report)
{
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> sets = {};
    bool done = syscall(SYS_capget, &header, sets.data()) == 0;
    for (std::size_t i = 0; i < sets.size(); ++i) {
        const bool isThere = locksMemory && i == CAP_TO_INDEX(CAP_IPC_LOCK);
        const quint32 kept = isThere ? CAP_TO_MASK(CAP_IPC_LOCK) : 0;
        sets[i] = {sets[i].effective & kept, sets[i].permitted & kept, 0};
    }
    done = done && syscall(SYS_capset, &header, sets.data()) == 0
        && prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0;
    if (!done)
        report(QStringLiteral("Privileges that are not needed cannot be given up: %1.")
                   .arg(QString::fromLocal8Bit(strerror(errno))));
    return done;
}

QString defaultRouteWarning(const PortInterfaces &interfaces)
{
    QSet<unsigned> routed;
    for (const int family : {AF_INET, AF_INET6}) {
        constexpr int kAttempts = 10;
        int error = EAGAIN;
        for (int i = 0; i < kAttempts && error == EAGAIN; ++i)
            error = addDefaultRoutes(family, &routed);
        if (error != 0)
            return QStringLiteral("Which interfaces carry the default route of this machine cannot "
                                  "be found out: %1.")
                .arg(QString::fromLocal8Bit(strerror(error)));
    }
    for (const QString &interface : interfaces) {
        if (interface.isEmpty())
            continue;
        const QStringList names = connectedInterfaces(interfaceName(interface));
        for (const QString &each : names) {
            if (routed.contains(if_nametoindex(each.toLocal8Bit().constData())))
                return QStringLiteral("Interface %1 carries the default route of this machine%2: "
                                      "a test would flood that network.")
                    .arg(interface,
                         each == interface ? QString() : QStringLiteral(" (through %1)").arg(each));
        }
    }
    return {};
}

} // namespace virtualboard
