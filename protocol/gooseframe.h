/// \file
/// Template of an IEC 61850-8-1 GOOSE frame.
#pragma once

#include "gooseoffsets.h"
#include "lumtar_export.h"

#include <QByteArray>
#include <QString>
#include <QVector>

/// MMS data tag of a boolean (IEC 61850-8-1, A.3), which can carry a binary output: 00 off, 01 on.
constexpr int kBooleanTag = 0x83;
/// MMS data tag of a bit string, which can carry a binary output too: 06 40 off, 06 80 on.
constexpr int kBitStringTag = 0x84;
constexpr int kIntegerTag = 0x85; ///< MMS data tag of an integer
constexpr int kUtcTimeTag = 0x91; ///< MMS data tag of a UTC time

/// One entry of a GOOSE dataset: tag, length and value, written one after the other.
class LUMTAR_EXPORT SetdataGoose
{
public:
    /// Sets the tag (IEC 61850-8-1, A.3: 83 boolean, 84 bit string, 85 integer, 86 unsigned, 87
    /// floating point, 89 octet string, 8a visible string, 8c binary time, 8d BCD, 8e boolean
    /// array, 91 UTC time, hexadecimal) with its length and default value. A UTC time is stamped
    /// with the current time. Other tags keep length and value. \a width matters for an integer
    /// only: 1, 2 or 4 bytes. Returns 0; -1 for an integer of another width, changing nothing.
    int setData_tag(int tag, int width);
    /// Sets tag, length and value from three hexadecimal texts separated by commas, as in 83,01,01;
    /// further parts are ignored. Returns 0; -1 for fewer than three parts, changing nothing.
    int setData_value(QString text);
    /// Changes nothing. Returns 0.
    int setData_value(int value);

    QByteArray Data_tag = QByteArrayLiteral("\x00"); ///< MMS data tag
    QByteArray Data_len = QByteArrayLiteral("\x00\x00"); ///< length
    QByteArray Data_value = QByteArrayLiteral("\x00"); ///< value
};

/// GOOSE frame (IEC 61850-8-1, annex A) and the command that downloads it to the board.
///
/// The download command is 8c 91 8c 91, Message_count (byte 4), Message_flag (5), Message_length
/// (7) and, from byte 9 on, the Ethernet frame from the destination MAC address on, without frame
/// check sequence: its fields in the order of the members TPID to Data_Vector below, after both
/// addresses. Frame offsets count from the first byte of the destination MAC address. In the frame
/// every number is big-endian.
class LUMTAR_EXPORT Message_goose
{
public:
    /// Recomputes every length and offset, fills \a record (as many entries as it has slots), keeps
    /// the frame's head for DataHeadValue(), and returns the download command: 9 bytes and the
    /// frame. A frame of 65536 bytes or more leaves Message_length as it was.
    QByteArray data(GooseDataOffsetAddr &record);
    /// The Ethernet frame of the last data() without the bytes of the dataset entries; empty
    /// before.
    QByteArray DataHeadValue() const;

    /// Stream number: \a stream modulo 64. Returns 1.
    int setMessage_count(int stream);
    /// Output port, 1 to 8; others wrap.
    void setMessage_flag(int port);
    /// Destination MAC as text such as 01-0C-CD-01-00-01, hexadecimal bytes; its number of bytes is
    /// not checked. Returns 0.
    int setDestination_Mac(QString text);
    /// Source MAC, as setDestination_Mac(). Returns 0.
    int setSource_Mac(QString text);
    /// 802.1Q user priority as hexadecimal text, 0 to 7 (the low three bits are kept); a text that
    /// is no hexadecimal number counts as 0. Returns 0.
    int setPriority(QString hex);
    /// VLAN ID as hexadecimal text, 12 bits. Returns whether the text is a hexadecimal number; one
    /// that is not counts as 0.
    bool setVLanId(QString hex);
    /// APPID as decimal text; the low 16 bits are kept. Returns 1.
    int setAPPID(QString text);

    /// \name References
    /// The value is the text in the codec for C strings, the length counts its bytes in BER form.
    /// Each returns 0.
    /// @{
    int setgocbRef(QString text); ///< GOOSE control block reference
    int setdatSet(QString text); ///< dataset reference
    int setgoID(QString text); ///< GOOSE identifier
    /// @}

    /// confRev as decimal text; the low 8 bits are kept.
    void setconfRevValue(QString text);
    /// timeAllowedtoLive in milliseconds, taken as unsigned 32-bit: 1 byte up to 255, 2 up to
    /// 32768, 3 up to 16777215, else 4. Returns 0.
    int setTimeAllowedtoLive_value(int milliseconds);

    /// Number of dataset entries; kept entries are untouched, new ones take the defaults. Returns
    /// 0; -1 outside 0 to 65535, changing nothing.
    int setCountData_value(int n);
    /// Gives entry \a index, counted from 0, the tag, length and default value of a configuration's
    /// type code: 1 boolean, 2 unsigned, 3 and 4 32-bit integer, 5 UTC time, 7 floating point, 12
    /// visible string, 13 bit string, 15 8-bit integer, 16 16-bit integer, 137 octet string, 141
    /// BCD. Any other code leaves the entry as it was and warns. Returns 0; -1 for an index outside
    /// the dataset, changing nothing.
    int setData_value(int type, int index);
    /// No effect.
    void setData_value(QString text, int index);
    /// SetdataGoose::setData_value() on entry \a index, whose result is ignored. Returns 0; -1 for
    /// an index outside the dataset, changing nothing.
    int setStateData_value(QString text, int index);

    /// \name Counts and lengths, set by data()
    /// Each returns 0; -1 for a negative number (or more than 65535 entries), changing nothing.
    /// @{
    int setNumDatSetEntries(int n); ///< one byte below 127, two from there on
    int setData_length(int n); ///< content of allData in bytes, BER form
    int setGoosePdu(int n); ///< content of goosePdu in bytes, BER form
    /// @}
    /// Sets Length to \a n (bytes of the reserved words and the APDU) + 4. A sum outside 0 to 65535
    /// changes nothing. Returns 0.
    int setLength(int n);

    QByteArray Message_count = QByteArrayLiteral("\x40"); ///< stream number; bits 7-6: 01 = GOOSE
    QByteArray Message_flag = QByteArrayLiteral("\x01\x00"); ///< output port selector
    QByteArray Message_length = QByteArrayLiteral("\x00\x00"); ///< frame length, low byte first
    QByteArray Source_Mac = QByteArrayLiteral("\x01\x0c\xcd\x02\x00\x00"); ///< source MAC
    QByteArray Destination_Mac = QByteArrayLiteral("\xff\xff\xff\xff\xff\xff"); ///< destination MAC
    QByteArray TPID = QByteArrayLiteral("\x81\x00"); ///< 802.1Q tag
    QByteArray TCI = QByteArrayLiteral("\x80\x00"); ///< priority 4, VLAN 0
    QByteArray EtherType = QByteArrayLiteral("\x88\xb8"); ///< GOOSE
    QByteArray APPID = QByteArrayLiteral("\x20\x00"); ///< application identifier
    QByteArray Length = QByteArrayLiteral("\x00\x00"); ///< 8 + APDU
    QByteArray Reserved1 = QByteArrayLiteral("\x00\x00"); ///< reserved 1
    QByteArray Reserved2 = QByteArrayLiteral("\x00\x00"); ///< reserved 2
    QByteArray GoosePdu_Tag = QByteArrayLiteral("\x61"); ///< goosePdu
    QByteArray GoosePdu_Length = QByteArrayLiteral("\x00"); ///< BER
    QByteArray gocbRef_Tag = QByteArrayLiteral("\x80"); ///< gocbRef
    QByteArray gocbRef_Length = QByteArrayLiteral("\x07"); ///< BER
    QByteArray gocbRef_Value = QByteArrayLiteral("gocbRef"); ///< control block reference
    QByteArray TimeAllowedtoLive_Tag = QByteArrayLiteral("\x81"); ///< timeAllowedtoLive
    QByteArray TimeAllowedtoLive_Length = QByteArrayLiteral("\x02"); ///< bytes of the value
    QByteArray TimeAllowedtoLive_value = QByteArrayLiteral("\x0f\xa0"); ///< 4000 ms
    QByteArray datSet_Tag = QByteArrayLiteral("\x82"); ///< datSet
    QByteArray datSet_Length = QByteArrayLiteral("\x07"); ///< BER
    QByteArray datSet_Value = QByteArrayLiteral("Dataset"); ///< dataset reference
    QByteArray goID_Tag = QByteArrayLiteral("\x83"); ///< goID
    QByteArray goID_Length = QByteArrayLiteral("\x04"); ///< BER
    QByteArray goID_Value = QByteArrayLiteral("goID"); ///< GOOSE identifier
    QByteArray t_Tag = QByteArrayLiteral("\x84"); ///< t
    QByteArray t_Length = QByteArrayLiteral("\x08"); ///< 8
    /// Time of the last state change: 4 bytes of seconds, 3 of fraction, 1 of time quality.
    QByteArray t_Value = QByteArrayLiteral("\x00\x00\x00\x00\x00\x00\x00\x50");
    QByteArray stNum_Tag = QByteArrayLiteral("\x85"); ///< stNum
    QByteArray stNum_Length = QByteArrayLiteral("\x04"); ///< 4
    QByteArray stNum_Value = QByteArrayLiteral("\x00\x00\x00\x01"); ///< unsigned 32-bit
    QByteArray sqNum_Tag = QByteArrayLiteral("\x86"); ///< sqNum
    QByteArray sqNum_Length = QByteArrayLiteral("\x04"); ///< 4
    QByteArray sqNum_Value = QByteArrayLiteral("\x00\x00\x00\x00"); ///< unsigned 32-bit
    QByteArray simulation_Tag = QByteArrayLiteral("\x87"); ///< simulation
    QByteArray simulation_Length = QByteArrayLiteral("\x01"); ///< 1
    QByteArray simulation_Value = QByteArrayLiteral("\x00"); ///< false
    QByteArray confRev_Tag = QByteArrayLiteral("\x88"); ///< confRev
    QByteArray confRev_Length = QByteArrayLiteral("\x01"); ///< 1
    QByteArray confRevValue = QByteArrayLiteral("\x01"); ///< one byte
    QByteArray ndsCom_Tag = QByteArrayLiteral("\x89"); ///< ndsCom
    QByteArray ndsCom_Length = QByteArrayLiteral("\x01"); ///< 1
    QByteArray ndsCom_Value = QByteArrayLiteral("\x00"); ///< false
    QByteArray NumDatSetEntries_Tag = QByteArrayLiteral("\x8a"); ///< numDatSetEntries
    QByteArray NumDatSetEntries_Length = QByteArrayLiteral("\x02"); ///< 1 or 2
    QByteArray NumDatSetEntries_Value = QByteArrayLiteral("\x00\x00"); ///< number of entries
    QByteArray allData_Tag = QByteArrayLiteral("\xab"); ///< allData
    QByteArray Data_length = QByteArrayLiteral("\x00\x00"); ///< BER
    QVector<SetdataGoose> Data_Vector; ///< dataset entries in frame order
    QByteArray DataHead; ///< the frame without the entries' bytes, set by data()
    int sqNum_Offset = 0; ///< frame offset of sqNum_Value, set by data()
    int stNum_Offset = 0; ///< frame offset of stNum_Value, set by data()
    int t_Offset = 0; ///< frame offset of t_Value, set by data()
};
