#pragma once

#include "playback.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

#include <array>
#include <functional>
#include <memory>
#include <vector>

namespace virtualboard {

constexpr int portLimit = 8; ///< output and light ports: 1 to 8

/// The network interface of port p at p - 1; an empty name: none.
using PortInterfaces = std::array<QString, portLimit>;

/// Takes over "3=eth1": port 3 is interface eth1. False, with the reason, if @p text is something
/// else.
[[nodiscard]] bool setPort(PortInterfaces &interfaces, const QString &text, QString *error);

/// The kernel's own name of the interface that is called @p name, which may be an alternative name
/// (netdevice(7)); @p name itself if there is none.
[[nodiscard]] QString interfaceName(const QString &name);

/**
 * The ports of a live board: raw sockets (packet(7)) on Ethernet interfaces.
 *
 * What comes in is GOOSE only, with or without an IEEE 802.1Q tag; what this machine sends is not
 * seen. Interfaces that go down, lose their link or vanish are survived: what is sent meanwhile
 * fails, and when they are back, everything goes on.
 *
 * Sending is for one thread, receiving and checking for one other.
 */
class PacketPorts : public FrameSink
{
public:
    /// Nothing, with the reason, if no interface is named, if one is not there or not Ethernet, or
    /// if the program may not open raw sockets (capability CAP_NET_RAW).
    static std::unique_ptr<PacketPorts> open(const PortInterfaces &interfaces, QString *error);
    ~PacketPorts() override;

    bool hasInterface(int port) const;

    /// One system call for each interface, unless it does not take all. Never waits. A frame for a
    /// port without an interface goes nowhere.
    void publish(qint64 time, const OutgoingFrame *frames, int count) override;
    /// Frames that an interface did not take; for any thread.
    quint64 failures() const;

    /// @param arrival  by CLOCK_MONOTONIC, as the kernel noted it when the frame came in
    /// @param ports  those of the interface; only 0 if it has all ports
    /// @param frame  from the destination MAC address on, with its tag
    using Receiver =
        std::function<void(qint64 arrival, const QVector<int> &ports, const QByteArray &frame)>;
    /// Waits @p milliseconds for frames, then hands on what there is. Returns false if an interface
    /// reported an error; check() tells which.
    bool receive(int milliseconds, const Receiver &receiver);
    /// Looks at the interfaces, and takes up again those that were gone. One line for each that,
    /// since the last look, has changed its state, began or ceased not to take frames, or had to
    /// drop received ones.
    QStringList check();

private:
    class Interface;
    PacketPorts();
    bool add(const PortInterfaces &interfaces, QString *error);

    std::vector<std::unique_ptr<Interface>> m_interfaces;
    std::array<Interface *, portLimit> m_ofPort = {};
};

} // namespace virtualboard
