/// \file
/// What the Ethernet frame templates of sampled values and GOOSE share: texts of addresses and
/// 802.1Q tags, and the header of the command that downloads a template to the board.
///
/// Inside an Ethernet frame every number is big-endian. A frame offset counts bytes from the first
/// byte of the destination MAC address.
#pragma once

#include "protocol/hexfield.h"

namespace ethernetframe {

/// Bytes of a MAC text such as 01-0C-CD-04-00-01. The field takes as many bytes as the text gives.
QByteArray macAddress(const QString &text);

/// Sets the VLAN ID (IEEE 802.1Q, 9.6: bits 11-0) of a tag control field from hexadecimal text.
/// Returns whether the text is a hexadecimal number; one that is not counts as 0.
bool setVlanId(QByteArray &tci, const QString &hex);

/// Sets the priority (bits 15-13) of a tag control field from hexadecimal text; its low three bits
/// are kept. Returns as setVlanId().
bool setPriority(QByteArray &tci, const QString &hex);

/// The two header bytes that select output port \a port, 1 to 8; others wrap.
QByteArray portSelector(int port);

/// Sets a Length field to \a reservedAndApdu bytes plus the 4 bytes of APPID and Length itself
/// (IEC 61850-8-1 and -9-2, annex C). A sum outside 0 to 65535 changes nothing.
void setLength(QByteArray &field, int reservedAndApdu);

/// Sets the download header's frame length, low byte first. A length above 65535 changes nothing.
void setFrameLength(QByteArray &field, int frameSize);

/// Starts the download command of a frame template: sets the template's lengths, then appends the
/// code 8c 91 8c 91, the three header fields and the frame up to its Length, with room for the
/// \a reservedAndApdu bytes that follow.
template <typename Frame>
QByteArray startDownload(Frame &frame, int reservedAndApdu)
{
    const auto ethernetHead = std::tie(frame.Destination_Mac, frame.Source_Mac, frame.TPID,
                                       frame.TCI, frame.EtherType, frame.APPID, frame.Length);
    setLength(frame.Length, reservedAndApdu);
    const int frameSize = hexfield::sizeOf(ethernetHead) + reservedAndApdu;
    setFrameLength(frame.Message_length, frameSize);

    const QByteArray code = QByteArrayLiteral("\x8c\x91\x8c\x91");
    const auto header =
        std::tie(code, frame.Message_count, frame.Message_flag, frame.Message_length);
    QByteArray command;
    command.reserve(hexfield::sizeOf(header) + frameSize);
    hexfield::append(command, header);
    hexfield::append(command, ethernetHead);
    return command;
}

/// Bytes of a download command before its frame, as startDownload() makes them.
template <typename Frame>
int headerSize(const Frame &frame)
{
    constexpr int kCode = 4;
    return kCode + hexfield::sizeOf(frame.Message_count, frame.Message_flag, frame.Message_length);
}

} // namespace ethernetframe
