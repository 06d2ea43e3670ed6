#include "virtualboard/live/packetports.h"

#include "virtualboard/live/liveclock.h"
#include "virtualboard/live/liveprivileges.h"
#include "virtualboard/wire/ethernetframes.h"

#include <QRegularExpression>
#include <QVector>
#include <QtEndian>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace virtualboard {

namespace {

constexpr std::size_t kBatchSize = std::size_t(2) * kStreamLimit; // all that an instant can bring

constexpr char kUnusable[] = ": it cannot be used";

template <typename T>
bool setOption(int socket, int level, int name, const T &value)
{
    return setsockopt(socket, level, name, &value, sizeof value) == 0;
}

/// The kernel takes the tag of a received frame away before the filter sees it.
bool acceptOnlyGoose(int socket)
{
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, quint32(SKF_AD_OFF + SKF_AD_PROTOCOL)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kEtherTypeGoose, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, 0xffff),
        BPF_STMT(BPF_RET | BPF_K, 0),
    };
    const sock_fprog filter = {quint16(std::size(program)), program};
    return setOption(socket, SOL_SOCKET, SO_ATTACH_FILTER, filter);
}

/// What the kernel tells of a received frame beside its bytes.
template <typename Value>
std::optional<Value> controlValue(msghdr &message, int level, int type)
{
    for (cmsghdr *each = CMSG_FIRSTHDR(&message); each; each = CMSG_NXTHDR(&message, each)) {
        if (each->cmsg_level == level && each->cmsg_type == type) {
            Value value;
            std::memcpy(&value, CMSG_DATA(each), sizeof value);
            return value;
        }
    }
    return std::nullopt;
}

/// When the kernel took the frame over. It stamps by the other clock; so we take off what both are
/// apart now.
MonotonicTime arrivalTime(msghdr &message)
{
    const auto stamp = controlValue<timespec>(message, SOL_SOCKET, SCM_TIMESTAMPNS);
    const MonotonicTime now = MonotonicClock::now();
    if (!stamp)
        return now;
    return std::min(ClockOffset::measured().monotonic(WallTime(durationOf(*stamp))), now);
}

/// The IEEE 802.1Q tag that the kernel has taken out of the frame; empty if it had none.
QByteArray tagOf(msghdr &message)
{
    const auto data = controlValue<tpacket_auxdata>(message, SOL_PACKET, PACKET_AUXDATA);
    if (!data || (data->tp_status & TP_STATUS_VLAN_VALID) == 0)
        return {};
    const bool knowsType = (data->tp_status & TP_STATUS_VLAN_TPID_VALID) != 0;
    std::array<uchar, 4> tag;
    qToBigEndian(quint16(knowsType ? data->tp_vlan_tpid : ETH_P_8021Q), tag.data());
    qToBigEndian(quint16(data->tp_vlan_tci), tag.data() + 2);
    return QByteArray(reinterpret_cast<const char *>(tag.data()), int(tag.size()));
}

} // namespace

Expected<void> setPort(PortInterfaces &interfaces, const QString &text)
{
    static const QRegularExpression form(QStringLiteral("^([1-8])=(\\S+)$"));
    const QRegularExpressionMatch match = form.match(text);
    if (!match.hasMatch())
        return Refusal(QStringLiteral("Port \"%1\": a port from 1 to 8 and an interface are "
                                      "expected, as in 1=eth1.")
                           .arg(text));
    interfaces[std::size_t(match.captured(1).toInt() - 1)] = match.captured(2);
    return {};
}

QString interfaceName(const QString &name)
{
    std::array<char, IF_NAMESIZE> own;
    return if_indextoname(if_nametoindex(name.toLocal8Bit().constData()), own.data())
        ? QString::fromLocal8Bit(own.data())
        : name;
}

/// One network interface: a socket for sending, one for receiving, and the frames to send next.
class PacketPorts::Interface
{
public:
    explicit Interface(const QString &name);
    ~Interface();
    Interface(const Interface &) = delete;
    Interface &operator=(const Interface &) = delete;

    /// The reason if the interface cannot be used, else empty.
    QString open();

    QString name() const { return m_name; }
    int receivingSocket() const { return m_receiving; }
    QVector<int> ports; ///< 1 to 8; only 0 if the interface has all of them

    bool isFull() const { return m_queued == kBatchSize; }
    void queue(const OutgoingFrame &frame)
    {
        m_parts[m_queued++] = {const_cast<uchar *>(frame.bytes), std::size_t(frame.size)};
    }
    /// Sends what is queued.
    void sendQueued();
    quint64 failures() const { return m_failures.load(std::memory_order_relaxed); }
    quint64 losses() const { return m_losses.load(std::memory_order_relaxed); }

    bool receive(const Receiver &receiver);
    QStringList check();

private:
    enum State { Up, NoLink, Down, Gone, Unusable };

    bool isBoundTo(unsigned index) const;
    QString bindTo(unsigned index);
    State state(QString *reason);
    QString failure(const char *what, int error = errno) const;
    QStringList reportFailures(quint64 failures, int error);
    void noteLosses(quint32 dropped);

    QString m_name;
    int m_sending = -1;
    int m_receiving = -1;
    std::atomic<State> m_state = Up; ///< as of the last check()
    std::atomic<quint64> m_failures = 0; ///< frames that the interface did not take
    std::atomic<quint64> m_losses = 0; ///< received messages that the system dropped
    std::atomic<int> m_error = 0; ///< of the last of them since the last check(), if it was tried

    quint32 m_dropped = 0; ///< by the receiving socket, as the checks have added it up

    // What check() knows of the failures; they come in episodes.
    quint64 m_seen = 0;
    MonotonicTime m_seenAt;
    quint64 m_reported = 0; ///< those of the episodes that are over
    bool m_announced = false; ///< the present episode

    std::size_t m_queued = 0;
    std::array<iovec, kBatchSize> m_parts = {};
    std::array<mmsghdr, kBatchSize> m_messages = {};
};

PacketPorts::Interface::Interface(const QString &name)
    : m_name(name)
{
    for (std::size_t i = 0; i < kBatchSize; ++i) {
        m_messages[i].msg_hdr.msg_iov = &m_parts[i];
        m_messages[i].msg_hdr.msg_iovlen = 1;
    }
}

PacketPorts::Interface::~Interface()
{
    for (const int socket : {m_sending, m_receiving}) {
        if (socket >= 0)
            close(socket);
    }
}

QString PacketPorts::Interface::failure(const char *what, int error) const
{
    return QStringLiteral("Interface %1%2: %3.")
        .arg(m_name, QString::fromLatin1(what), QString::fromLocal8Bit(strerror(error)));
}

QString PacketPorts::Interface::open()
{
    // Protocol 0: neither socket receives anything before the filter is there and bindTo() is done.
    m_sending = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    m_receiving = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (m_sending < 0 || m_receiving < 0)
        return errno == EPERM ? missingCapability(CAP_NET_RAW) : failure(": no raw socket");

    // All frames of an instant; only the second way is bounded by what the system allows everybody.
    constexpr int kSendingSpace = 4 << 20;
    if (!setOption(m_sending, SOL_SOCKET, SO_SNDBUFFORCE, kSendingSpace))
        setOption(m_sending, SOL_SOCKET, SO_SNDBUF, kSendingSpace);
    const int on = 1;
    if (!acceptOnlyGoose(m_receiving)
        || !setOption(m_receiving, SOL_PACKET, PACKET_IGNORE_OUTGOING, on)
        || !setOption(m_receiving, SOL_SOCKET, SO_TIMESTAMPNS, on)
        || !setOption(m_receiving, SOL_SOCKET, SO_RXQ_OVFL, on)
        || !setOption(m_receiving, SOL_PACKET, PACKET_AUXDATA, on))
        return failure(kUnusable);
    const unsigned index = if_nametoindex(m_name.toLocal8Bit().constData());
    return index == 0 ? failure(kUnusable) : bindTo(index);
}

/// The kernel unbinds sockets when an interface vanishes; the same one, with the same index, may
/// come back.
bool PacketPorts::Interface::isBoundTo(unsigned index) const
{
    for (const int socket : {m_sending, m_receiving}) {
        sockaddr_ll address = {};
        socklen_t size = sizeof address;
        if (getsockname(socket, reinterpret_cast<sockaddr *>(&address), &size) < 0
            || address.sll_ifindex != int(index))
            return false;
    }
    return true;
}

/// The reason if it is not possible, else empty.
QString PacketPorts::Interface::bindTo(unsigned index)
{
    ifreq request = {};
    const QByteArray name = m_name.toLocal8Bit(); // short enough: an interface has this name
    std::memcpy(request.ifr_name, name.constData(), std::size_t(name.size()));
    if (ioctl(m_sending, SIOCGIFHWADDR, &request) < 0)
        return failure(kUnusable);
    if (request.ifr_hwaddr.sa_family != ARPHRD_ETHER)
        return QStringLiteral("Interface %1 is no Ethernet interface.").arg(m_name);

    sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    address.sll_ifindex = int(index);
    packet_mreq membership = {};
    membership.mr_ifindex = int(index);
    // Not only all multicasts: cards may drop the tags of VLANs that the system does not know.
    membership.mr_type = PACKET_MR_PROMISC;
    const auto bindSocket = [&](int socket, quint16 protocol) {
        address.sll_protocol = htons(protocol);
        return bind(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    };
    // Last what isBoundTo() looks at.
    const bool done = setOption(m_receiving, SOL_PACKET, PACKET_ADD_MEMBERSHIP, membership)
        && bindSocket(m_sending, 0) && bindSocket(m_receiving, ETH_P_ALL);
    return done ? QString() : failure(kUnusable);
}

void PacketPorts::Interface::sendQueued()
{
    // Without a link, the system takes every frame and drops it without a word.
    const bool isUp = m_state.load(std::memory_order_relaxed) == Up;
    unsigned failures = isUp ? 0 : unsigned(m_queued);
    for (std::size_t first = 0; isUp && first < m_queued;) {
        const int sent =
            sendmmsg(m_sending, &m_messages[first], unsigned(m_queued - first), MSG_DONTWAIT);
        if (sent < 0) { // the error of the first frame: it is lost; the others get their chance
            m_error.store(errno, std::memory_order_relaxed);
            ++failures;
        }
        first += sent < 0 ? 1 : std::size_t(sent);
    }
    m_queued = 0;
    if (failures > 0)
        m_failures.fetch_add(failures, std::memory_order_relaxed);
}

bool PacketPorts::Interface::receive(const Receiver &receiver)
{
    constexpr int kEnough = 256; // then the other interfaces have their turn
    for (int i = 0; i < kEnough; ++i) {
        std::array<char, 2048> bytes;
        alignas(cmsghdr) std::array<char, 256> control;
        iovec part = {bytes.data(), bytes.size()};
        msghdr message = {};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        const ssize_t size = recvmsg(m_receiving, &message, MSG_DONTWAIT);
        if (size < 0)
            return errno == EAGAIN || errno == EINTR;
        noteLosses(
            controlValue<quint32>(message, SOL_SOCKET, SO_RXQ_OVFL).value_or(quint32(losses())));
        if ((message.msg_flags & MSG_TRUNC) != 0)
            continue; // longer than any Ethernet frame
        const MonotonicTime arrival = arrivalTime(message);
        constexpr int kAddressesSize = 12;
        QByteArray frame(bytes.data(), int(size));
        frame.insert(kAddressesSize, tagOf(message));
        receiver(arrival, ports, frame);
    }
    return true;
}

/// \param dropped by the receiving socket since it was opened, modulo 2^32
void PacketPorts::Interface::noteLosses(quint32 dropped)
{
    const auto more = qint32(dropped - quint32(losses()));
    if (more > 0)
        m_losses.fetch_add(quint64(more), std::memory_order_relaxed);
}

/// Binds again if need be. \param reason why it is unusable, if it is
PacketPorts::Interface::State PacketPorts::Interface::state(QString *reason)
{
    const QByteArray name = m_name.toLocal8Bit();
    ifreq request = {};
    std::memcpy(request.ifr_name, name.constData(), std::size_t(name.size()));
    const unsigned index = if_nametoindex(name.constData());
    if (index == 0 || ioctl(m_sending, SIOCGIFFLAGS, &request) < 0)
        return Gone;
    if (!isBoundTo(index))
        *reason = bindTo(index);
    if (!reason->isEmpty())
        return Unusable;
    const int flags = request.ifr_flags;
    if ((flags & IFF_UP) == 0)
        return Down;
    return (flags & IFF_RUNNING) == 0 ? NoLink : Up;
}

QStringList PacketPorts::Interface::check()
{
    // In this order: if it is a failure of an interface that is not up, the state tells.
    const quint64 failures = this->failures();
    const int error = m_error.exchange(0, std::memory_order_relaxed);
    QString reason;
    const State now = state(&reason);
    const State before = m_state.exchange(now, std::memory_order_relaxed);

    QStringList lines;
    static const char *const texts[] = {"is up again", "has no link", "is down", "is gone"};
    if (now != before)
        lines << (now == Unusable
                      ? reason
                      : QStringLiteral("Interface %1 %2.").arg(m_name, QLatin1String(texts[now])));
    lines << reportFailures(failures, now == Up && before == Up ? error : 0);
    tpacket_stats statistics = {};
    socklen_t size = sizeof statistics;
    if (getsockopt(m_receiving, SOL_PACKET, PACKET_STATISTICS, &statistics, &size) == 0
        && statistics.tp_drops > 0) {
        m_dropped += statistics.tp_drops;
        noteLosses(m_dropped);
        lines << QStringLiteral("Interface %1: %2 received GOOSE messages were lost, too many came "
                                "at once.")
                     .arg(m_name)
                     .arg(statistics.tp_drops);
    }
    return lines;
}

/// \param failures until now  \param error to announce; 0: none, or its cause is known
QStringList PacketPorts::Interface::reportFailures(quint64 failures, int error)
{
    constexpr Duration kQuiet = 50ms; // after that, an episode is over
    QStringList lines;
    const MonotonicTime now = MonotonicClock::now();
    if (error != 0 && !m_announced) {
        lines << failure(" does not take all frames", error);
        m_announced = true;
    }
    if (failures != m_seen) {
        m_seen = failures;
        m_seenAt = now;
    } else if (failures != m_reported && now - m_seenAt >= kQuiet) {
        lines << QStringLiteral("Interface %1: %2 frames were not sent.")
                     .arg(m_name)
                     .arg(failures - m_reported);
        m_reported = failures;
        m_announced = false;
    }
    return lines;
}

PacketPorts::PacketPorts() = default;
PacketPorts::~PacketPorts() = default;

Expected<std::unique_ptr<PacketPorts>> PacketPorts::open(const PortInterfaces &interfaces)
{
    if (std::all_of(interfaces.begin(), interfaces.end(),
                    [](const QString &name) { return name.isEmpty(); }))
        return Refusal(QStringLiteral("No port has an interface."));
    std::unique_ptr<PacketPorts> result(new PacketPorts);
    if (const QString reason = result->add(interfaces); !reason.isEmpty())
        return Refusal(reason);
    return result;
}

QString PacketPorts::add(const PortInterfaces &interfaces)
{
    for (int port = 1; port <= kPortLimit; ++port) {
        if (interfaces[std::size_t(port - 1)].isEmpty())
            continue;
        const QString name = interfaceName(interfaces[std::size_t(port - 1)]);
        auto known = std::find_if(m_interfaces.begin(), m_interfaces.end(),
                                  [&](const auto &each) { return each->name() == name; });
        if (known == m_interfaces.end()) {
            known = m_interfaces.insert(known, std::make_unique<Interface>(name));
            if (const QString reason = (*known)->open(); !reason.isEmpty())
                return reason;
        }
        (*known)->ports << port;
        m_ofPort[std::size_t(port - 1)] = known->get();
    }
    for (const auto &each : m_interfaces) {
        if (each->ports.size() == kPortLimit)
            each->ports = {0};
    }
    return {};
}

bool PacketPorts::hasInterface(int port) const
{
    return port >= 1 && port <= kPortLimit && m_ofPort[std::size_t(port - 1)] != nullptr;
}

void PacketPorts::publish(WallTime, const OutgoingFrame *frames, int count)
{
    for (int i = 0; i < count; ++i) {
        if (!hasInterface(frames[i].port))
            continue;
        Interface *const interface = m_ofPort[std::size_t(frames[i].port - 1)];
        if (interface->isFull())
            interface->sendQueued();
        interface->queue(frames[i]);
    }
    for (const auto &each : m_interfaces)
        each->sendQueued();
}

quint64 PacketPorts::failures() const
{
    quint64 sum = 0;
    for (const auto &each : m_interfaces)
        sum += each->failures();
    return sum;
}

quint64 PacketPorts::losses() const
{
    quint64 sum = 0;
    for (const auto &each : m_interfaces)
        sum += each->losses();
    return sum;
}

bool PacketPorts::receive(int milliseconds, const Receiver &receiver)
{
    std::array<pollfd, std::size_t(kPortLimit)> sockets = {};
    for (std::size_t i = 0; i < m_interfaces.size(); ++i)
        sockets[i] = {m_interfaces[i]->receivingSocket(), POLLIN, 0};
    if (poll(sockets.data(), nfds_t(m_interfaces.size()), milliseconds) <= 0)
        return true;
    bool sound = true;
    for (std::size_t i = 0; i < m_interfaces.size(); ++i) {
        if (sockets[i].revents != 0)
            sound = m_interfaces[i]->receive(receiver) && sound;
    }
    return sound;
}

QStringList PacketPorts::check()
{
    QStringList lines;
    for (const auto &each : m_interfaces)
        lines << each->check();
    return lines;
}

} // namespace virtualboard
