#pragma once

#include "virtualboard/play/playback.h"
#include "virtualboard/wire/expected.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

#include <array>
#include <functional>
#include <memory>
#include <vector>

namespace virtualboard {

/// The network interface of port p at p - 1; an empty name: none.
using PortInterfaces = std::array<QString, kPortLimit>;

/// Takes over "3=eth1": port 3 is interface eth1. Fails if \a text is something else.
[[nodiscard]] Expected<void> setPort(PortInterfaces &interfaces, const QString &text);

/// The kernel's own name of the interface that is called \a name, which may be an alternative name
/// (netdevice(7)); \a name itself if there is none.
[[nodiscard]] QString interfaceName(const QString &name);

/// The ports of a live board: raw sockets (packet(7)) on Ethernet interfaces.
///
/// What comes in is GOOSE only, with or without an IEEE 802.1Q tag; what this machine sends is not
/// seen. Interfaces that go down, lose their link or vanish are survived: what is sent meanwhile
/// fails, and when they are back, everything goes on.
///
/// Sending is for one thread, receiving and checking for one other.
class PacketPorts : public FrameSink
{
public:
    /// Fails if no interface is named, if one is not there or not Ethernet, or if the program may
    /// not open raw sockets (capability CAP_NET_RAW).
    static Expected<std::unique_ptr<PacketPorts>> open(const PortInterfaces &interfaces);
    ~PacketPorts() override;

    bool hasInterface(int port) const;

    /// One system call for each interface, unless it does not take all. Never waits. A frame for a
    /// port without an interface goes nowhere.
    void publish(WallTime time, const OutgoingFrame *frames, int count) override;
    /// Frames that an interface did not take; for any thread.
    quint64 failures() const;
    /// GOOSE messages that came in, but that the system had to drop; for any thread. A message is
    /// received only when those dropped before it have been counted; others are after check().
    quint64 losses() const;

    /// \param arrival as the kernel noted it when the frame came in
    /// \param ports those of the interface; only 0 if it has all ports
    /// \param frame from the destination MAC address on, with its tag
    using Receiver = std::function<void(MonotonicTime arrival, const QVector<int> &ports,
                                        const QByteArray &frame)>;
    /// Waits \a milliseconds for frames, then hands on what there is. Returns false if an interface
    /// reported an error; check() tells which.
    bool receive(int milliseconds, const Receiver &receiver);
    /// Looks at the interfaces, and takes up again those that were gone. One line for each that,
    /// since the last look, has changed its state, began or ceased not to take frames, or had to
    /// drop received ones.
    QStringList check();

private:
    class Interface;
    PacketPorts();
    /// The reason if it is not possible, else empty.
    QString add(const PortInterfaces &interfaces);

    std::vector<std::unique_ptr<Interface>> m_interfaces;
    std::array<Interface *, kPortLimit> m_ofPort = {};
};

} // namespace virtualboard
