#include "lumtarengine.h"

#include "configurationreading.h"

namespace testconfiguration {

namespace {

constexpr int kMaxPosition = 255; // a binding keeps the position in one byte

QDomElement frameElementOf(const QDomElement &stream)
{
    QDomElement child = stream.firstChildElement();
    while (!child.isNull() && !hasTag(child, QLatin1String("goose")))
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
    const auto t0 = static_cast<quint32>(decimal(element, QStringLiteral("t0")));
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
        frame.setData_value(decimal(child, QStringLiteral("gstype_tp")), k);
}

bool canCarryBinaryOutput(const GooseDataOffsetAddr &record, int position)
{
    if (position < 1 || position > qMin(record.Num, kMaxPosition))
        return false;
    const int tag = record.DataTag[position - 1];
    return tag == kBooleanTag || tag == kBitStringTag;
}

/// The bindings of a stream's `mapinfo` children.
QVector<OutputBinding> bindingsOf(const QDomElement &element, int stream,
                                  const GooseDataOffsetAddr &record, Remarks &remarks)
{
    QVector<OutputBinding> bindings;
    for (QDomElement child = element.firstChildElement(); !child.isNull();
         child = child.nextSiblingElement()) {
        if (!hasTag(child, QLatin1String("mapinfo")))
            continue;
        const int output = decimal(child, QStringLiteral("Which"));
        const int position = decimal(child, QStringLiteral("Pos"));
        if (output < 1 || output > kBinaryOutputs || stream >= kSequenceGooseStreams) {
            remark(remarks, Remark::Error, child,
                   QStringLiteral("ignored, mapinfo with Which %1 in GOOSE stream %2: only outputs "
                                  "1 to %3 can be bound, in streams 0 to %4")
                       .arg(output)
                       .arg(stream)
                       .arg(kBinaryOutputs)
                       .arg(kSequenceGooseStreams - 1));
            continue;
        }
        if (!canCarryBinaryOutput(record, position)) {
            remark(
                remarks, Remark::Error, child,
                QStringLiteral("Pos %1 names no boolean or bit string that could carry output %2")
                    .arg(position)
                    .arg(output));
        }
        bindings.append({output, position});
    }
    return bindings;
}

} // namespace

std::optional<GoosePublication> readGoosePublication(const QDomElement &element, int stream,
                                                     GooseDataOffsetAddr &record, Remarks &remarks)
{
    const QDomElement frameElement = frameElementOf(element);
    const int entries = decimal(frameElement, QStringLiteral("datCount"));
    if (stream >= kMaxGooseStreams) {
        remark(remarks, Remark::Error, element,
               QStringLiteral("refused, in_goose %1 is above %2")
                   .arg(stream + 1)
                   .arg(kMaxGooseStreams));
        return std::nullopt;
    }
    if (entries < 0 || entries > kMaxGooseEntries) {
        remark(remarks, Remark::Error, frameElement,
               QStringLiteral("refused, datCount %1 is outside 0 to %2")
                   .arg(entries)
                   .arg(kMaxGooseEntries));
        record.SetPara(0);
        return std::nullopt;
    }

    GoosePublication publication;
    Message_goose &frame = publication.frame;
    frame.setMessage_count(stream);
    frame.setMessage_flag(decimal(element, QStringLiteral("portindex")));
    setHead(frame, frameElement);
    setEntries(frame, entries, frameElement);
    record.SetPara(entries);
    publication.download = frame.data(record);
    publication.description.setGoose_count(stream);
    publication.description.setGoose_Sequence(frame.sqNum_Offset);
    publication.description.setGoose_utcShitf(frame.t_Offset);
    publication.bindings = bindingsOf(element, stream, record, remarks);
    return publication;
}

} // namespace testconfiguration

void LumtarEngine::SetGoose(QDomElement &element, QByteArray &work)
{
    testconfiguration::Remarks remarks;
    GooseDataOffsetAddr none;
    GooseDataOffsetAddr &record = gooseCount < testconfiguration::kMaxGooseStreams
        ? gblGooseDataOffsetAddr[gooseCount]
        : none;
    const auto publication =
        testconfiguration::readGoosePublication(element, gooseCount, record, remarks);
    testconfiguration::report(QStringLiteral("SetGoose"), remarks);
    if (!publication)
        return;
    sendStream(publication->download, publication->description.data(), work);
    for (const testconfiguration::OutputBinding &binding : publication->bindings) {
        outputGooseMap[binding.output - 1] = {static_cast<qint8>(gooseCount),
                                              static_cast<quint8>(binding.position)};
    }
}
