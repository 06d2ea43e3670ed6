#pragma once

#include <QByteArray>
#include <QStringList>

namespace virtualboard {

/// What a datagram of the device link carries.
struct Envelope
{
    /// The padded command frame: everything between the nine header bytes and the two check bytes.
    /// Also filled, with what is there, when the envelope is damaged.
    QByteArray frame;
    /// One sentence per fault, with the values expected and found; empty for a sound envelope.
    QStringList problems;
};

/// Number of bytes that the envelope adds to the padded frame.
constexpr int kEnvelopeSize = 11;

/// Opens the envelope of one datagram of the device link.
///
/// | Offset | Size | Content                                                              |
/// |--------|------|----------------------------------------------------------------------|
/// | 0      | 4    | marker a5 a5 a5 a5                                                   |
/// | 4      | 1    | 00                                                                   |
/// | 5      | 2    | length of padded frame and check bytes, low byte first               |
/// | 7      | 2    | the same length again                                                |
/// | 9      | m    | command frame, padded to an even number of bytes                     |
/// | 9 + m  | 2    | exclusive-or of the frame's bytes at even, then at odd positions      |
///
/// \param datagram any bytes of any size; nothing outside of them is read.
[[nodiscard]] Envelope openEnvelope(const QByteArray &datagram);

} // namespace virtualboard
