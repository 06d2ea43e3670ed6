#include "liveprivileges.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSet>
#include <QVector>

#include <net/route.h>

namespace virtualboard {

namespace {

/// A routing table of the kernel in text form; numbers of the columns, from 0.
struct RouteTable
{
    const char *path;
    int destination;
    int prefix; ///< mask or prefix length
    int flags; ///< in hexadecimal
    int interface;
};

constexpr RouteTable routeTables[] = {
    {"/proc/net/route", 1, 7, 3, 0},
    {"/proc/net/ipv6_route", 0, 1, 8, 9},
};

bool isZero(const QByteArray &digits)
{
    return digits.count('0') == digits.size();
}

/// The names of the interfaces that have a default route.
QSet<QString> defaultRouteInterfaces()
{
    QSet<QString> result;
    for (const RouteTable &table : routeTables) {
        QFile file(QString::fromLatin1(table.path));
        if (!file.open(QIODevice::ReadOnly))
            continue; // the kernel was built without this protocol
        const QList<QByteArray> lines = file.readAll().split('\n');
        for (const QByteArray &line : lines) {
            const QList<QByteArray> columns = line.simplified().replace('\t', ' ').split(' ');
            if (columns.size() > qMax(table.prefix, table.interface)
                && isZero(columns.at(table.destination)) && isZero(columns.at(table.prefix))
                && (columns.at(table.flags).toUInt(nullptr, 16) & (RTF_UP | RTF_REJECT)) == RTF_UP)
                result += QString::fromLocal8Bit(columns.at(table.interface));
        }
    }
    return result;
}

/// The interface and all that is built upon it.
QVector<QString> withUppers(const QString &interface)
{
    constexpr int deepest = 64; // no more than that can be a chain that the kernel allows
    QVector<QString> found = {interface};
    for (int i = 0; i < found.size() && found.size() < deepest; ++i) {
        const QString upper = QStringLiteral("upper_");
        const QStringList links = QDir(QStringLiteral("/sys/class/net/") + found.at(i))
                                      .entryList({upper + QLatin1Char('*')});
        for (const QString &link : links)
            found += link.mid(upper.size());
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
    static constexpr Need needs[] = {
        {CAP_NET_RAW, "Frames on a network interface need CAP_NET_RAW", "cap_net_raw"},
        {CAP_SYS_NICE, "Real-time scheduling needs CAP_SYS_NICE",
         "cap_net_raw,cap_sys_nice,cap_ipc_lock"},
        {CAP_IPC_LOCK, "Locking the memory for real-time scheduling needs CAP_IPC_LOCK",
         "cap_net_raw,cap_sys_nice,cap_ipc_lock"},
    };
    for (const Need &need : needs) {
        if (need.capability == capability)
            return QStringLiteral("%1: run the program as root, or grant it once with "
                                  "\"sudo setcap %2+ep %3\".")
                .arg(QString::fromLatin1(need.what), QString::fromLatin1(need.grant),
                     QCoreApplication::applicationFilePath());
    }
    Q_UNREACHABLE();
}

QString defaultRouteWarning(const PortInterfaces &interfaces)
{
    const QSet<QString> routed = defaultRouteInterfaces();
    for (const QString &interface : interfaces) {
        if (interface.isEmpty())
            continue;
        const QVector<QString> names = withUppers(interface);
        for (const QString &each : names) {
            if (routed.contains(each))
                return QStringLiteral("Interface %1 carries the default route of this machine%2: "
                                      "a test would flood that network.")
                    .arg(interface,
                         each == interface ? QString() : QStringLiteral(" (through %1)").arg(each));
        }
    }
    return {};
}

} // namespace virtualboard
