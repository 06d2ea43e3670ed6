#include "benchmarks/barelink.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace {

constexpr std::uint16_t kBoardPort = 2001;
constexpr std::array<char, 4> kAcknowledgement{'\x0f', '\x5a', '\xf0', '\xa5'};
constexpr int kBufferSize = 1600;

sockaddr_in socketAddress(const char *text, std::uint16_t port)
{
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(port);
    inet_pton(AF_INET, text, &result.sin_addr);
    return result;
}

int openSocket(const sockaddr_in &local)
{
    const int descriptor = ::socket(AF_INET, SOCK_DGRAM, 0);
    if (descriptor < 0
        || ::bind(descriptor, reinterpret_cast<const sockaddr *>(&local), sizeof local) != 0) {
        std::perror("benchmark socket");
        std::exit(1);
    }
    return descriptor;
}

} // namespace

Responder::Responder(const char *address, std::map<std::string, std::string> replies)
    : m_address(address)
    , m_replies(std::move(replies))
    , m_socket(openSocket(socketAddress(address, kBoardPort)))
    , m_thread([this] { run(); })
{ }

Responder::~Responder()
{
    m_stopping = true;
    BareLink(m_address).exchange("wake up");
    m_thread.join();
    ::close(m_socket);
}

std::vector<std::string> Responder::takeReceived()
{
    return std::exchange(m_received, {});
}

void Responder::run()
{
    std::array<char, kBufferSize> buffer;
    while (!m_stopping) {
        sockaddr_in sender{};
        socklen_t senderSize = sizeof sender;
        auto *from = reinterpret_cast<sockaddr *>(&sender);
        const auto size = ::recvfrom(m_socket, buffer.data(), buffer.size(), 0, from, &senderSize);
        if (size < 0)
            continue;
        if (recording)
            m_received.emplace_back(buffer.data(), std::size_t(size));
        ::sendto(m_socket, kAcknowledgement.data(), kAcknowledgement.size(), 0, from, senderSize);
        if (m_replies.empty())
            continue;
        const auto reply = m_replies.find(std::string(buffer.data(), std::size_t(size)));
        if (reply != m_replies.end())
            ::sendto(m_socket, reply->second.data(), reply->second.size(), 0, from, senderSize);
    }
}

BareLink::BareLink(const char *address)
    : m_board(socketAddress(address, kBoardPort))
    , m_socket(openSocket(socketAddress("0.0.0.0", 0)))
{ }

BareLink::~BareLink()
{
    ::close(m_socket);
}

bool BareLink::exchange(const std::string &datagram, int answers)
{
    ::sendto(m_socket, datagram.data(), datagram.size(), 0,
             reinterpret_cast<const sockaddr *>(&m_board), sizeof m_board);
    while (answers > 0 && receive())
        --answers;
    return answers == 0;
}

bool BareLink::receive()
{
    pollfd readable{m_socket, POLLIN, 0};
    if (::poll(&readable, 1, 1500) != 1)
        return false;
    std::array<char, kBufferSize> buffer;
    sockaddr_in sender{};
    socklen_t senderSize = sizeof sender;
    return ::recvfrom(m_socket, buffer.data(), buffer.size(), 0,
                      reinterpret_cast<sockaddr *>(&sender), &senderSize)
        > 0;
}
