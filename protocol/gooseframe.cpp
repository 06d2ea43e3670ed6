#include "protocol/gooseframe.h"

#include "protocol/ethernetframe.h"
#include "protocol/goosetypes.h"
#include "protocol/textcodec.h"
#include "protocol/warningbox.h"

#include <QDateTime>
#include <QStringList>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

using namespace std::string_view_literals;

namespace {

/// Data tags whose length and first value never vary; kIntegerTag and kUtcTimeTag have their own
/// rules.
struct TagDefault
{
    int tag;
    std::string_view value;
};

constexpr std::array kTagDefaults{
    TagDefault{kBooleanTag, "\0"sv},
    TagDefault{kBitStringTag, "\x06\x40"sv}, // bit string: six trailing bits not used, then 01
    TagDefault{0x86, "\0"sv}, // unsigned
    TagDefault{0x87, "\0\0\0\0\0"sv}, // floating point
    TagDefault{0x89, "\0\0"sv}, // octet string
    TagDefault{0x8a, "ab"sv}, // visible string
    TagDefault{0x8c, "\0\0\0\0"sv}, // binary time
    TagDefault{0x8d, "\0\0"sv}, // BCD
    TagDefault{0x8e, "\0\0\0"sv}, // boolean array
};

/// UTC time as IEC 61850-8-1 (8.1.3.7) has it: seconds since 1970, fraction, time quality.
QByteArray utcNow()
{
    QByteArray stamp;
    hexfield::setFixedWidth(stamp, quint64(QDateTime::currentSecsSinceEpoch()), 4);
    return stamp + QByteArrayLiteral("\x00\x00\x00\x50");
}

int setReference(QByteArray &value, QByteArray &length, const QString &text)
{
    value = textcodec::toCString(text);
    return hexfield::setBerLength(length, hexfield::sizeOf(value));
}

/// Appends the dataset to \a command and notes each entry in \a record, as far as its slots go.
void appendEntries(QByteArray &command, int frameStart, const QVector<SetdataGoose> &entries,
                   GooseDataOffsetAddr &record)
{
    int slot = 0;
    for (const SetdataGoose &entry : entries) {
        hexfield::append(command, entry.Data_tag, entry.Data_len);
        if (slot < record.Num) {
            record.DataTag[slot] = quint8(hexfield::byteAt(entry.Data_tag, 0));
            record.DataLen[slot] = quint8(hexfield::byteAt(entry.Data_len, 0));
            record.DataOffset[slot] = quint16(hexfield::sizeOf(command) - frameStart);
            ++slot;
        }
        hexfield::append(command, entry.Data_value);
    }
}

} // namespace

int SetdataGoose::setData_tag(int tag, int width)
{
    if (tag == kIntegerTag && width != 1 && width != 2 && width != 4)
        return -1;
    hexfield::setNumber(Data_tag, tag);

    const auto fixed = std::find_if(kTagDefaults.begin(), kTagDefaults.end(),
                                    [tag](const TagDefault &row) { return row.tag == tag; });
    if (tag == kIntegerTag)
        Data_value = QByteArray(width, '\0');
    else if (tag == kUtcTimeTag)
        Data_value = utcNow();
    else if (fixed != kTagDefaults.end())
        Data_value = QByteArray(fixed->value.data(), int(fixed->value.size()));
    else
        return 0;
    hexfield::setNumber(Data_len, Data_value.size());
    return 0;
}

int SetdataGoose::setData_value(QString text)
{
    const QStringList parts = text.split(QLatin1Char(','));
    if (parts.size() < 3)
        return -1;
    Data_tag = hexfield::fromText(parts.at(0));
    Data_len = hexfield::fromText(parts.at(1));
    Data_value = hexfield::fromText(parts.at(2));
    return 0;
}

int SetdataGoose::setData_value(int)
{
    return 0;
}

QByteArray Message_goose::data(GooseDataOffsetAddr &record)
{
    using hexfield::append;
    using hexfield::sizeOf;

    const auto pduHead = std::tie(Reserved1, Reserved2, GoosePdu_Tag, GoosePdu_Length);
    const auto beforeT =
        std::tie(gocbRef_Tag, gocbRef_Length, gocbRef_Value, TimeAllowedtoLive_Tag,
                 TimeAllowedtoLive_Length, TimeAllowedtoLive_value, datSet_Tag, datSet_Length,
                 datSet_Value, goID_Tag, goID_Length, goID_Value, t_Tag, t_Length);
    const auto fromT = std::tie(t_Value, stNum_Tag, stNum_Length);
    const auto fromStNum = std::tie(stNum_Value, sqNum_Tag, sqNum_Length);
    const auto fromSqNum = std::tie(
        sqNum_Value, simulation_Tag, simulation_Length, simulation_Value, confRev_Tag,
        confRev_Length, confRevValue, ndsCom_Tag, ndsCom_Length, ndsCom_Value, NumDatSetEntries_Tag,
        NumDatSetEntries_Length, NumDatSetEntries_Value, allData_Tag, Data_length);

    // First the lengths, from the inside out.
    int size = 0;
    for (const SetdataGoose &entry : std::as_const(Data_Vector))
        size += sizeOf(entry.Data_tag, entry.Data_len, entry.Data_value);
    setData_length(size);
    setNumDatSetEntries(int(Data_Vector.size()));
    size += sizeOf(beforeT) + sizeOf(fromT) + sizeOf(fromStNum) + sizeOf(fromSqNum);
    setGoosePdu(size);
    size += sizeOf(pduHead);

    // Then one pass forward. An offset is where its field begins.
    QByteArray command = ethernetframe::startDownload(*this, size);
    const int frameStart = ethernetframe::headerSize(*this);
    const auto offset = [&command, frameStart] { return sizeOf(command) - frameStart; };
    append(command, pduHead);
    append(command, beforeT);
    t_Offset = offset();
    append(command, fromT);
    stNum_Offset = offset();
    append(command, fromStNum);
    sqNum_Offset = offset();
    append(command, fromSqNum);
    DataHead = command.mid(frameStart);

    record.StNumOffset = quint8(stNum_Offset);
    appendEntries(command, frameStart, Data_Vector, record);
    return command;
}

QByteArray Message_goose::DataHeadValue() const
{
    return DataHead;
}

int Message_goose::setMessage_count(int stream)
{
    constexpr int kGooseFrame = 0x40;
    hexfield::setNumber(Message_count, kGooseFrame | (stream & 0x3f));
    return 1;
}

void Message_goose::setMessage_flag(int port)
{
    Message_flag = ethernetframe::portSelector(port);
}

int Message_goose::setDestination_Mac(QString text)
{
    Destination_Mac = ethernetframe::macAddress(text);
    return 0;
}

int Message_goose::setSource_Mac(QString text)
{
    Source_Mac = ethernetframe::macAddress(text);
    return 0;
}

int Message_goose::setPriority(QString hex)
{
    ethernetframe::setPriority(TCI, hex);
    return 0;
}

bool Message_goose::setVLanId(QString hex)
{
    return ethernetframe::setVlanId(TCI, hex);
}

int Message_goose::setAPPID(QString text)
{
    hexfield::setDecimal(APPID, text, 2);
    return 1;
}

int Message_goose::setgocbRef(QString text)
{
    return setReference(gocbRef_Value, gocbRef_Length, text);
}

int Message_goose::setdatSet(QString text)
{
    return setReference(datSet_Value, datSet_Length, text);
}

int Message_goose::setgoID(QString text)
{
    return setReference(goID_Value, goID_Length, text);
}

void Message_goose::setconfRevValue(QString text)
{
    hexfield::setDecimal(confRevValue, text, 1);
}

int Message_goose::setTimeAllowedtoLive_value(int milliseconds)
{
    // The limit is 0x8000 on purpose: 32768 itself still takes two bytes, more takes at least
    // three.
    constexpr quint32 kLargestOfTwoBytes = 0x8000;
    const auto value = quint32(milliseconds);
    hexfield::setNumber(TimeAllowedtoLive_value, value, value > kLargestOfTwoBytes ? 3 : 1);
    hexfield::setNumber(TimeAllowedtoLive_Length, TimeAllowedtoLive_value.size());
    return 0;
}

int Message_goose::setCountData_value(int n)
{
    if (n < 0 || n > hexfield::kMax16)
        return -1;
    Data_Vector.resize(n);
    return 0;
}

int Message_goose::setData_value(int type, int index)
{
    if (index < 0 || index >= Data_Vector.size())
        return -1;
    if (const goosetypes::DataType *const known = goosetypes::find(type))
        Data_Vector[index].setData_tag(known->tag, known->width);
    else
        warnUnsupportedGooseType();
    return 0;
}

void Message_goose::setData_value(QString, int) { }

int Message_goose::setStateData_value(QString text, int index)
{
    if (index < 0 || index >= Data_Vector.size())
        return -1;
    Data_Vector[index].setData_value(text);
    return 0;
}

int Message_goose::setNumDatSetEntries(int n)
{
    constexpr int kFirstOfTwoBytes = 0x7f;
    if (n < 0 || n > hexfield::kMax16)
        return -1;
    hexfield::setFixedWidth(NumDatSetEntries_Value, quint64(n), n < kFirstOfTwoBytes ? 1 : 2);
    hexfield::setNumber(NumDatSetEntries_Length, NumDatSetEntries_Value.size());
    return 0;
}

int Message_goose::setData_length(int n)
{
    return hexfield::setBerLength(Data_length, n);
}

int Message_goose::setGoosePdu(int n)
{
    return hexfield::setBerLength(GoosePdu_Length, n);
}

int Message_goose::setLength(int n)
{
    ethernetframe::setLength(Length, n);
    return 0;
}
