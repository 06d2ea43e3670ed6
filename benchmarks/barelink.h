/// \file
/// The yardstick of the device link: plain sockets, no library.
#pragma once

#include <netinet/in.h>

#include <atomic>
#include <map>
#include <string>
#include <thread>
#include <vector>

/// Loopback address of the responder of the link's benchmarks.
constexpr char kBoardAddress[] = "127.0.62.1";

/// Acknowledges every datagram on port 2001, in a thread of its own.
class Responder
{
public:
    /// \param replies what follows the acknowledgement of these datagrams
    explicit Responder(const char *address = kBoardAddress,
                       std::map<std::string, std::string> replies = {});
    ~Responder();
    Responder(const Responder &) = delete;
    Responder &operator=(const Responder &) = delete;

    /// The datagrams received since the last call.
    std::vector<std::string> takeReceived();

    std::atomic<bool> recording{false};

private:
    void run();

    const char *const m_address;
    const std::map<std::string, std::string> m_replies;
    int m_socket;
    std::atomic<bool> m_stopping{false};
    std::vector<std::string> m_received;
    std::thread m_thread;
};

/// Sends a datagram and waits for each answer with sendto(), poll() and recvfrom().
class BareLink
{
public:
    explicit BareLink(const char *address = kBoardAddress);
    ~BareLink();
    BareLink(const BareLink &) = delete;
    BareLink &operator=(const BareLink &) = delete;

    /// Returns whether all answers came, each within 1.5 s.
    bool exchange(const std::string &datagram, int answers = 1);

private:
    bool receive();

    const sockaddr_in m_board;
    int m_socket;
};
