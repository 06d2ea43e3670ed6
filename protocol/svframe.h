/// \file
/// Template of an IEC 61850-9-2 sampled-value frame with one ASDU.
#pragma once

#include "lumtar_export.h"

#include <QByteArray>
#include <QString>
#include <QVector>

/// One entry of a sampled-value dataset: a value and its quality, 8 bytes in the frame.
class LUMTAR_EXPORT SeqData
{
public:
    /// Sets Value from decimal text, a signed 32-bit number, as two's complement. A text that is no
    /// such number gives 0. Returns 0.
    int setVlaue(QString text);
    /// Stores the bytes of a hexadecimal text of at most 8 digits into Quality in reverse order:
    /// the text's first byte becomes byte 3. Bytes that the text does not reach keep their value.
    /// Returns 1; -1 for more than 8 digits, changing nothing.
    int setQuality(QString hex);
    /// Sets Quality to the bitwise OR of the QualityFlags, big-endian.
    void setQuality();

    QByteArray Value = QByteArrayLiteral("\0\0\0\0"); ///< signed 32-bit, big-endian
    QByteArray Quality = QByteArrayLiteral("\0\0\0\0"); ///< 32-bit quality, in frame byte order
    quint32 QualityFlags[13] = {}; ///< words that setQuality() combines
};

/// Sampled-value frame (IEC 61850-9-2, 8.5) and the command that downloads it to the board.
///
/// The download command is 8c 91 8c 91, Message_count (byte 4), Message_flag (5), Message_length
/// (7) and, from byte 9 on, the Ethernet frame from the destination MAC address on, without frame
/// check sequence: its fields in the order of the members TPID to SeqData_Vector below, after both
/// addresses. Frame offsets count from the first byte of the destination MAC address. In the frame
/// every number is big-endian.
class LUMTAR_EXPORT Message_9_2
{
public:
    /// Recomputes every length and both offsets and returns the download command: 9 bytes and the
    /// frame, 245 bytes by default. A frame of 65536 bytes or more leaves Message_length as it was.
    QByteArray data();

    /// Stream number: bits 5-0 of Message_count become \a stream modulo 64. Returns 0.
    int setMessage_count(int stream);
    /// Output port, 1 to 8; others wrap.
    void setMessage_flag(int port);
    /// Destination MAC as text such as 01-0C-CD-04-00-01, hexadecimal bytes; its number of bytes is
    /// not checked. Returns 0.
    int setDestination_Mac(QString text);
    /// Source MAC, as setDestination_Mac(). Returns 0.
    int setSource_Mac(QString text);
    /// VLAN ID as hexadecimal text, 12 bits. Returns whether the text is a hexadecimal number; one
    /// that is not counts as 0.
    bool setVLanId(QString hex);
    /// 802.1Q user priority as hexadecimal text, 0 to 7 (the low three bits are kept). Returns as
    /// setVLanId().
    bool setpriority(QString hex);
    /// APPID as decimal text; the low 16 bits are kept. Returns 1.
    int setAPPID(QString text);
    /// svID. The value is the text in the codec for C strings, the length counts its bytes in BER
    /// form. Returns 1.
    int setSVID(QString text);
    /// confRev as decimal text, 32 bits.
    void setconfRevValue(QString text);
    /// smpSynch: 0 not synchronised, 1 local, 2 global clock; the low byte is kept. Returns
    /// \a value.
    int setSmpSynch_value(int value);
    /// Number of dataset entries; kept entries are untouched, new ones zero. Returns 0; -1 outside
    /// 0 to 65535, changing nothing.
    int setSizeSeqData_VectorValue(int n);

    /// \name Lengths, set by data()
    /// The content length in bytes goes into the field in BER form. Each returns 0; -1 for a
    /// negative length, changing nothing.
    /// @{
    int setSeqData_length(int n); ///< 8 bytes per dataset entry
    int setASDU_length(int n); ///< from the svID's tag on
    int setseqASDU_Length(int n); ///< from the ASDU's tag on
    int setsavPdu_Length(int n); ///< from the noASDU's tag on
    /// @}
    /// Sets Length to \a n (bytes of the reserved words and the APDU) + 4. A sum outside 0 to 65535
    /// changes nothing. Returns 0.
    int setLength(int n);

    QByteArray Message_count = QByteArrayLiteral("\x00"); ///< stream number; bits 7-6: 00 = SV
    QByteArray Message_flag = QByteArrayLiteral("\x01\x00"); ///< output port selector
    QByteArray Message_length = QByteArrayLiteral("\x00\x00"); ///< frame length, low byte first
    QByteArray Source_Mac = QByteArrayLiteral("\xff\xff\xff\xff\xff\xff"); ///< source MAC
    QByteArray Destination_Mac = QByteArrayLiteral("\xff\xff\xff\xff\xff\xff"); ///< destination MAC
    QByteArray TPID = QByteArrayLiteral("\x81\x00"); ///< 802.1Q tag
    QByteArray TCI = QByteArrayLiteral("\x80\x00"); ///< priority 4, VLAN 0
    QByteArray EtherType = QByteArrayLiteral("\x88\xba"); ///< sampled values
    QByteArray APPID = QByteArrayLiteral("\x40\x00"); ///< application identifier
    QByteArray Length = QByteArrayLiteral("\x00\xda"); ///< 8 + APDU
    QByteArray Reserved1 = QByteArrayLiteral("\x00\x00"); ///< reserved 1
    QByteArray Reserved2 = QByteArrayLiteral("\x00\x00"); ///< reserved 2
    QByteArray savPdu_Tag = QByteArrayLiteral("\x60"); ///< savPdu
    QByteArray savPdu_Length = QByteArrayLiteral("\x81\xcf"); ///< BER
    QByteArray noASDU_Tag = QByteArrayLiteral("\x80"); ///< noASDU
    QByteArray noASDU_Length = QByteArrayLiteral("\x01"); ///< 1
    QByteArray noASDU_Value = QByteArrayLiteral("\x01"); ///< always one ASDU
    QByteArray seqASDU_Tag = QByteArrayLiteral("\xa2"); ///< sequence of ASDU
    QByteArray seqASDU_Length = QByteArrayLiteral("\x81\xc9"); ///< BER
    QByteArray ASDU_Tag = QByteArrayLiteral("\x30"); ///< ASDU
    QByteArray ASDU_length = QByteArrayLiteral("\x81\xc6"); ///< BER
    QByteArray SVID_Tag = QByteArrayLiteral("\x80"); ///< svID
    QByteArray SVID_Length = QByteArrayLiteral("\x04"); ///< BER
    QByteArray SVID_Value = QByteArrayLiteral("svid"); ///< svID text
    QByteArray SmpCnt_Tag = QByteArrayLiteral("\x82"); ///< smpCnt
    QByteArray SmpCnt_Length = QByteArrayLiteral("\x02"); ///< 2
    QByteArray SmpCnt_Value = QByteArrayLiteral("\x00\x00"); ///< written by the board at run time
    QByteArray confRev_Tag = QByteArrayLiteral("\x83"); ///< confRev
    QByteArray confRev_Length = QByteArrayLiteral("\x04"); ///< 4
    QByteArray confRevValue = QByteArrayLiteral("\x00\x00\x00\x01"); ///< unsigned 32-bit
    QByteArray SmpSynch_Tag = QByteArrayLiteral("\x85"); ///< smpSynch
    QByteArray SmpSynch_Length = QByteArrayLiteral("\x01"); ///< 1
    QByteArray SmpSynch_value = QByteArrayLiteral("\x01"); ///< local clock
    QByteArray SeqData_Tag = QByteArrayLiteral("\x87"); ///< seqData
    QByteArray SeqData_length = QByteArrayLiteral("\x81\xb0"); ///< BER
    QVector<SeqData> SeqData_Vector = QVector<SeqData>(22); ///< dataset entries in frame order
    int SmpCnt_Offset = 0; ///< frame offset of SmpCnt_Value, set by data()
    int SeqData_Offset = 0; ///< frame offset of the first dataset entry, set by data()
};
