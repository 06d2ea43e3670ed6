/// \file
/// One datagram of the device link, in either direction.
#pragma once

#include <QByteArray>

#include <array>
#include <optional>

namespace envelope {

constexpr quint16 kBoardPort = 2001; ///< UDP port of the board
constexpr int kDatagramSize = 1600; ///< the most that the engine sends or receives

// To the board: marker, a zero byte, the length twice, the padded frame, two check bytes.
constexpr int kFrameOffset = 9;
constexpr int kCheckBytes = 2;
/// The longest command frame; frames are padded to an even number of bytes.
constexpr int kMaxFrame = (kDatagramSize - kFrameOffset - kCheckBytes) & ~1;

/// The longest payload of a data reply.
constexpr int kMaxPayload = kDatagramSize - 9;

using Datagram = std::array<char, kDatagramSize>;

/// Wraps \a frame, of at most kMaxFrame bytes, into \a datagram; returns the datagram's size.
int wrap(const QByteArray &frame, Datagram &datagram);

/// Whether a datagram from the board acknowledges a command.
[[nodiscard]] bool isAcknowledgement(const char *datagram, int size);

/// What a datagram from the board is: what its first pattern makes it, as the payload of a data
/// reply may hold either pattern.
enum class Answer { None, Acknowledgement, DataReply };
[[nodiscard]] Answer answerIn(const char *datagram, int size);

/// A data reply inside a datagram from the board.
struct DataReply
{
    int position; ///< of its pattern
    int payload; ///< position of its payload
    int length; ///< of the payload, as announced

    [[nodiscard]] int end() const { return payload + length; }
};

/// The first data reply of the datagram, whole or cut off; length bytes that are not there count
/// as 0.
[[nodiscard]] std::optional<DataReply> findDataReply(const char *datagram, int size);

} // namespace envelope
