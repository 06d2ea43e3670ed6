#include "lumtarengine.h"

#include "configurationattributes.h"
#include "configurationlimits.h"
#include "gooseframe.h"
#include "streamdescriptions.h"

#include <QDebug>

#include <iterator>

namespace {

constexpr int kMaxPosition = 255; // a binding keeps the position in one byte

constexpr int kBoolean = 0x83;
constexpr int kBitString = 0x84;

QDomElement frameElementOf(const QDomElement &stream)
{
    QDomElement child = stream.firstChildElement();
    while (!child.isNull() && !attributes::hasTag(child, QLatin1String("goose")))
        child = child.nextSiblingElement();
    return child;
}

void setHead(Message_goose &frame, const QDomElement &element)
{
    frame.setSource_Mac(QStringLiteral("FF-FF-FF-FF-FF-FF")); // the configuration has none
    frame.setDestination_Mac(element.attribute(QStringLiteral("mac")));
    frame.setPriority(element.attribute(QStringLiteral("priority")));
    frame.setVLanId(element.attribute(QStringLiteral("vLan")));
    frame.setAPPID(element.attribute(QStringLiteral("appid")));
    frame.setgocbRef(element.attribute(QStringLiteral("gcRef")));
    frame.setconfRevValue(element.attribute(QStringLiteral("confRev")));
    const auto t0 = static_cast<quint32>(attributes::decimal(element, QStringLiteral("t0")));
    frame.setTimeAllowedtoLive_value(static_cast<int>(2 * t0));
    frame.setdatSet(element.attribute(QStringLiteral("datSet")));
    frame.setgoID(element.attribute(QStringLiteral("goId")));
}

/// Gives the first \a count entries the types of the element's children; entries without a child
/// keep their default.
void setEntries(Message_goose &frame, int count, const QDomElement &element)
{
    frame.setCountData_value(count);
    QDomElement child = element.firstChildElement();
    for (int k = 0; k < count && !child.isNull(); ++k, child = child.nextSiblingElement())
        frame.setData_value(attributes::decimal(child, QStringLiteral("gstype_tp")), k);
}

bool canCarryBinaryOutput(const GooseDataOffsetAddr &record, int position)
{
    if (position < 1 || position > qMin(record.Num, kMaxPosition))
        return false;
    const int tag = record.DataTag[position - 1];
    return tag == kBoolean || tag == kBitString;
}

} // namespace

void LumtarEngine::SetGoose(QDomElement &element, QByteArray &work)
{
    if (gooseCount >= kMaxGooseStreams) {
        qDebug() << "SetGoose: refused, in_goose" << gooseCount + 1 << "is above"
                 << kMaxGooseStreams;
        return;
    }
    GooseDataOffsetAddr &record = gblGooseDataOffsetAddr[gooseCount];
    const QDomElement frameElement = frameElementOf(element);
    const int entries = attributes::decimal(frameElement, QStringLiteral("datCount"));
    if (entries < 0 || entries > kMaxGooseEntries) {
        qDebug() << "SetGoose: refused, datCount" << entries << "of stream" << gooseCount
                 << "is outside 0 to" << kMaxGooseEntries;
        record.SetPara(0);
        return;
    }

    Message_goose frame;
    frame.setMessage_count(gooseCount);
    frame.setMessage_flag(attributes::decimal(element, QStringLiteral("portindex")));
    setHead(frame, frameElement);
    setEntries(frame, entries, frameElement);
    record.SetPara(entries);
    work = frame.data(record);
    SendCommand(work);

    GOOSE_MessageStructure description;
    description.setGoose_count(gooseCount);
    description.setGoose_Sequence(frame.sqNum_Offset);
    description.setGoose_utcShitf(frame.t_Offset);
    work = description.data();
    SendCommand(work);

    bindOutputs(element);
}

void LumtarEngine::bindOutputs(const QDomElement &stream)
{
    for (QDomElement child = stream.firstChildElement(); !child.isNull();
         child = child.nextSiblingElement()) {
        if (!attributes::hasTag(child, QLatin1String("mapinfo")))
            continue;
        const int output = attributes::decimal(child, QStringLiteral("Which"));
        const int position = attributes::decimal(child, QStringLiteral("Pos"));
        if (output < 1 || output > static_cast<int>(std::size(outputGooseMap))
            || gooseCount >= kSequenceGooseStreams) {
            qDebug() << "SetGoose: ignored, mapinfo of stream" << gooseCount << "with Which"
                     << output << "binds no output";
            continue;
        }
        if (!canCarryBinaryOutput(gblGooseDataOffsetAddr[gooseCount], position)) {
            qDebug() << "SetGoose: Pos" << position << "of stream" << gooseCount
                     << "names no boolean or bit string that could carry output" << output;
        }
        outputGooseMap[output - 1] = {static_cast<qint8>(gooseCount),
                                      static_cast<quint8>(position)};
    }
}
