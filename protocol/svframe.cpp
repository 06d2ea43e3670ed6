#include "protocol/svframe.h"

#include "protocol/ethernetframe.h"
#include "protocol/textcodec.h"

#include <utility>

int SeqData::setVlaue(QString text)
{
    hexfield::setFixedWidth(Value, quint64(text.toInt()), 4);
    return 0;
}

int SeqData::setQuality(QString hex)
{
    constexpr int kWidth = 4;
    quint32 value = 0;
    const int bytes = hexfield::shortNumber(hex, value);
    if (bytes < 0)
        return -1;
    for (int i = kWidth - bytes; i < kWidth; ++i, value >>= 8) // from the text's last byte
        hexfield::setByte(Quality, i, int(value & 0xff));
    return 1;
}

void SeqData::setQuality()
{
    quint32 combined = 0;
    for (const quint32 flags : QualityFlags)
        combined |= flags;
    hexfield::setFixedWidth(Quality, combined, 4);
}

QByteArray Message_9_2::data()
{
    using hexfield::append;
    using hexfield::sizeOf;

    const auto pduHead = std::tie(Reserved1, Reserved2, savPdu_Tag, savPdu_Length);
    const auto asduCount =
        std::tie(noASDU_Tag, noASDU_Length, noASDU_Value, seqASDU_Tag, seqASDU_Length);
    const auto asduHead = std::tie(ASDU_Tag, ASDU_length);
    const auto beforeSmpCnt =
        std::tie(SVID_Tag, SVID_Length, SVID_Value, SmpCnt_Tag, SmpCnt_Length);
    const auto fromSmpCnt =
        std::tie(SmpCnt_Value, confRev_Tag, confRev_Length, confRevValue, SmpSynch_Tag,
                 SmpSynch_Length, SmpSynch_value, SeqData_Tag, SeqData_length);

    // First the lengths, from the inside out.
    int size = 0;
    for (const SeqData &entry : std::as_const(SeqData_Vector))
        size += sizeOf(entry.Value, entry.Quality);
    setSeqData_length(size);
    size += sizeOf(beforeSmpCnt) + sizeOf(fromSmpCnt);
    setASDU_length(size);
    size += sizeOf(asduHead);
    setseqASDU_Length(size);
    size += sizeOf(asduCount);
    setsavPdu_Length(size);
    size += sizeOf(pduHead);

    // Then one pass forward. An offset is where its field begins.
    QByteArray command = ethernetframe::startDownload(*this, size);
    const int frameStart = ethernetframe::headerSize(*this);
    append(command, pduHead);
    append(command, asduCount);
    append(command, asduHead);
    append(command, beforeSmpCnt);
    SmpCnt_Offset = sizeOf(command) - frameStart;
    append(command, fromSmpCnt);
    SeqData_Offset = sizeOf(command) - frameStart;
    for (const SeqData &entry : std::as_const(SeqData_Vector))
        append(command, entry.Value, entry.Quality);
    return command;
}

int Message_9_2::setMessage_count(int stream)
{
    const int kindBits = hexfield::byteAt(Message_count, 0) & 0xc0;
    hexfield::setByte(Message_count, 0, kindBits | (stream & 0x3f));
    return 0;
}

void Message_9_2::setMessage_flag(int port)
{
    Message_flag = ethernetframe::portSelector(port);
}

int Message_9_2::setDestination_Mac(QString text)
{
    Destination_Mac = ethernetframe::macAddress(text);
    return 0;
}

int Message_9_2::setSource_Mac(QString text)
{
    Source_Mac = ethernetframe::macAddress(text);
    return 0;
}

bool Message_9_2::setVLanId(QString hex)
{
    return ethernetframe::setVlanId(TCI, hex);
}

bool Message_9_2::setpriority(QString hex)
{
    return ethernetframe::setPriority(TCI, hex);
}

int Message_9_2::setAPPID(QString text)
{
    hexfield::setDecimal(APPID, text, 2);
    return 1;
}

int Message_9_2::setSVID(QString text)
{
    SVID_Value = textcodec::toCString(text);
    hexfield::setBerLength(SVID_Length, hexfield::sizeOf(SVID_Value));
    return 1;
}

void Message_9_2::setconfRevValue(QString text)
{
    hexfield::setDecimal(confRevValue, text, 4);
}

int Message_9_2::setSmpSynch_value(int value)
{
    hexfield::setFixedWidth(SmpSynch_value, quint64(value), 1);
    return value;
}

int Message_9_2::setSizeSeqData_VectorValue(int n)
{
    if (n < 0 || n > hexfield::kMax16)
        return -1;
    SeqData_Vector.resize(n);
    return 0;
}

int Message_9_2::setSeqData_length(int n)
{
    return hexfield::setBerLength(SeqData_length, n);
}

int Message_9_2::setASDU_length(int n)
{
    return hexfield::setBerLength(ASDU_length, n);
}

int Message_9_2::setseqASDU_Length(int n)
{
    return hexfield::setBerLength(seqASDU_Length, n);
}

int Message_9_2::setsavPdu_Length(int n)
{
    return hexfield::setBerLength(savPdu_Length, n);
}

int Message_9_2::setLength(int n)
{
    ethernetframe::setLength(Length, n);
    return 0;
}
