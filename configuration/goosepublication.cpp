#include "configuration/streamreaders.h"

#include "protocol/goosetypes.h"

namespace testconfiguration {

namespace {

constexpr int kMaxPosition = 255; // a binding keeps the position in one byte

constexpr AttributeRule kVlan{QLatin1String("vLan"), AttributeRule::Hexadecimal, 0, kMostVlanId};
constexpr AttributeRule kGocbRef{QLatin1String("gcRef"), AttributeRule::Identifier};
constexpr AttributeRule kDatSet{QLatin1String("datSet"), AttributeRule::Identifier};
constexpr AttributeRule kGoId{QLatin1String("goId"), AttributeRule::Identifier};
constexpr AttributeRule kConfRev{QLatin1String("confRev"), AttributeRule::Decimal, 0, kMost32};
constexpr AttributeRule kT0{QLatin1String("t0"), AttributeRule::Decimal, 0, kMost32 / 2};
constexpr AttributeRule kEntryCount{QLatin1String("datCount"), AttributeRule::Decimal, kLeastInt,
                                    kMostInt};
constexpr AttributeRule kTypeCode{QLatin1String("gstype_tp"), AttributeRule::Decimal, 1, kMostInt};
constexpr QLatin1String kFrameTag("goose");
constexpr QLatin1String kBindingTag("mapinfo");

/// Returns the number of dataset entries.
int readFrame(const Element &element, Message_goose &frame, RemarkList &remarks)
{
    ElementReader in(element, QLatin1String("in_goose/goose"), remarks);
    frame.setSource_Mac(QStringLiteral("FF-FF-FF-FF-FF-FF")); // the configuration has none
    frame.setDestination_Mac(in.text(kMac));
    frame.setPriority(in.text(kPriority));
    frame.setVLanId(in.text(kVlan));
    frame.setAPPID(in.text(kAppId));
    frame.setgocbRef(in.text(kGocbRef));
    frame.setconfRevValue(in.text(kConfRev));
    frame.setTimeAllowedtoLive_value(int(2 * quint32(in.decimal(kT0))));
    frame.setdatSet(in.text(kDatSet));
    frame.setgoID(in.text(kGoId));
    const int entries = in.decimal(kEntryCount);
    in.finish(); // every child is an entry
    return entries;
}

/// Gives entry \a index the type that \a element names, if there is such a type.
void readEntry(const Element &element, int index, GoosePublication &publication,
               RemarkList &remarks)
{
    ElementReader in(element, QLatin1String("in_goose/goose/*"), remarks);
    const int code = in.decimal(kTypeCode);
    in.finish({});
    if (const goosetypes::DataType *const type = goosetypes::find(code)) {
        publication.frame.Data_Vector[index].setData_tag(type->tag, type->width);
        return;
    }
    ++publication.unsupportedTypes;
    if (code > 0 || !remarks.isChecking()) // a check has told of what cannot be a code
        remarks.fail(element,
                     QStringLiteral("%1 of %2 is \"%3\", which is no known type code")
                         .arg(kTypeCode.name, element.tag())
                         .arg(code),
                     kTypeCode.name);
}

/// Entries without a child keep their default.
void readEntries(const Element &frameElement, GoosePublication &publication, RemarkList &remarks)
{
    const int count = int(publication.frame.Data_Vector.size());
    Element child = frameElement.firstChild();
    int read = 0;
    for (; read < count && !child.isNull(); ++read, child = child.nextSibling())
        readEntry(child, read, publication, remarks);
    if (!remarks.isChecking() || frameElement.isNull())
        return;
    if (!child.isNull())
        remarks.fail(child,
                     QStringLiteral("ignored, %1 entries beyond the %2 that datCount counts")
                         .arg(frameElement.childCount() - count)
                         .arg(count));
    if (read < count)
        remarks.fail(
            frameElement,
            QStringLiteral("datCount is %1, but there are %2 entries; the others have no type")
                .arg(count)
                .arg(read),
            kEntryCount.name);
}

bool canCarryBinaryOutput(const Message_goose &frame, int position)
{
    if (position < 1 || position > qMin(int(frame.Data_Vector.size()), kMaxPosition))
        return false;
    const QByteArray &tag = frame.Data_Vector[position - 1].Data_tag;
    return quint8(tag[0]) == kBooleanTag || quint8(tag[0]) == kBitStringTag;
}

void readBinding(const Element &element, GoosePublication &publication, RemarkList &remarks)
{
    ElementReader in(element, QLatin1String("in_goose/mapinfo"), remarks);
    const int output = in.decimal(kWhich);
    const int position = in.decimal(kPos);
    in.finish({});
    if (output < 1 || output > limits::kBinaryOutputs
        || publication.stream >= limits::kSequenceGooseStreams) {
        remarks.fail(element,
                     QStringLiteral("ignored, mapinfo with Which %1 in GOOSE stream %2: only "
                                    "outputs 1 to %3 can be bound, in streams 0 to %4")
                         .arg(output)
                         .arg(publication.stream)
                         .arg(limits::kBinaryOutputs)
                         .arg(limits::kSequenceGooseStreams - 1));
        return;
    }
    if (!canCarryBinaryOutput(publication.frame, position))
        remarks.fail(
            element,
            QStringLiteral("Pos %1 names no boolean or bit string that could carry output %2")
                .arg(position)
                .arg(output));
    publication.bindings.append({output, position, element.place()});
}

/// Tells of a frame element that is missing, and of those that are not read.
void checkFrameElements(const Element &element, RemarkList &remarks)
{
    int frames = 0;
    for (Element child = element.firstChild(); !child.isNull(); child = child.nextSibling()) {
        if (child.hasTag(kFrameTag) && ++frames > 1)
            remarks.fail(child,
                         QStringLiteral("ignored, only the first goose of an in_goose is read"));
    }
    if (frames == 0)
        remarks.fail(element, QStringLiteral("in_goose has no goose, which describes its frame"));
}

} // namespace

Element frameElementOf(const Element &element)
{
    Element child = element.firstChild();
    while (!child.isNull() && !child.hasTag(kFrameTag))
        child = child.nextSibling();
    return child;
}

std::optional<GoosePublication> readGoosePublication(const Element &element, int stream,
                                                     RemarkList &remarks)
{
    GoosePublication publication;
    publication.stream = stream;
    Message_goose &frame = publication.frame;
    ElementReader in(element, QLatin1String("in_goose"), remarks);
    frame.setMessage_count(stream);
    frame.setMessage_flag(in.decimal(kOutputPort));
    in.finish({kFrameTag, kBindingTag});
    if (remarks.isChecking())
        checkFrameElements(element, remarks);
    const Element frameElement = frameElementOf(element);
    const int entries = readFrame(frameElement, frame, remarks);
    if (stream >= limits::kGooseStreams) {
        remarks.fail(element,
                     QStringLiteral("refused, in_goose %1 is above %2")
                         .arg(stream + 1)
                         .arg(limits::kGooseStreams));
        return std::nullopt;
    }
    if (entries < 0 || entries > limits::kGooseEntries) {
        remarks.fail(frameElement, refusal(kEntryCount.name, entries, limits::kGooseEntries));
        return std::nullopt;
    }

    frame.setCountData_value(entries);
    readEntries(frameElement, publication, remarks);
    for (Element child = element.firstChild(); !child.isNull(); child = child.nextSibling()) {
        if (child.hasTag(kBindingTag))
            readBinding(child, publication, remarks);
    }
    return publication;
}

void GoosePublication::build(GooseDataOffsetAddr &record)
{
    record.SetPara(int(frame.Data_Vector.size()));
    download = frame.data(record);
    description.setGoose_count(stream);
    description.setGoose_Sequence(frame.sqNum_Offset);
    description.setGoose_utcShitf(frame.t_Offset);
}

} // namespace testconfiguration
