/// \file
/// The yardstick of the device link: plain sockets, no library.
#pragma once

#include <atomic>
#include <string>
#include <thread>
#include <vector>

/// Loopback address of the responder that every benchmark talks to.
constexpr char kBoardAddress[] = "127.0.62.1";

/// Acknowledges every datagram on port 2001, in a thread of its own.
class Responder
{
public:
    Responder();
    ~Responder();
    Responder(const Responder &) = delete;
    Responder &operator=(const Responder &) = delete;

    /// The datagrams received since the last call.
    std::vector<std::string> takeReceived();

    std::atomic<bool> recording{false};

private:
    void run();

    int m_socket;
    std::atomic<bool> m_stopping{false};
    std::vector<std::string> m_received;
    std::thread m_thread;
};

/// Sends a datagram and waits for the answer with sendto(), poll() and recvfrom().
class BareLink
{
public:
    BareLink();
    ~BareLink();
    BareLink(const BareLink &) = delete;
    BareLink &operator=(const BareLink &) = delete;

    /// Returns whether an answer came within 1.5 s.
    bool exchange(const std::string &datagram);

private:
    int m_socket;
};
