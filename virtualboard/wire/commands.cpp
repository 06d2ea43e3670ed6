#include "virtualboard/wire/commands.h"

#include "virtualboard/wire/bytes.h"
#include "virtualboard/wire/fieldreader.h"
#include "virtualboard/wire/limits.h"
#include "virtualboard/wire/problems.h"

#include <utility>

namespace virtualboard {

namespace {

Command readChannelSignal(FieldReader &in)
{
    ChannelSignalCommand result;
    result.step = in.byte("step");
    result.channel = in.byte("channel");
    result.scaleFactor = in.real("scale factor");
    result.peakFlag = in.byte("peak flag");
    result.frequency = in.real("frequency");
    result.amplitude = in.real("amplitude");
    result.phase = in.real("phase");
    if (in.remaining() > 0)
        result.phaseJump = in.real("phase jump");
    return result;
}

Command readResetParameters(FieldReader &)
{
    return ResetCommand{};
}

Command readStartStop(FieldReader &in)
{
    StartStopCommand result;
    const int mode = in.byte("start flag");
    if (mode > 1)
        in.problem(QStringLiteral("Start flag: 0 or 1 expected, %1 found.").arg(mode));
    result.start = mode != 0;
    result.sampleInterval = in.byte("sample interval");
    result.parameters = in.bytes(4, "parameters");
    return result;
}

Command readSvDescription(FieldReader &in)
{
    SvDescriptionCommand result;
    const int count = in.byte("stream and protocol");
    result.stream = count % kStreamLimit;
    result.protocol = count / kStreamLimit;
    result.number = in.byte("stream number");
    result.smpCntOffset = in.word("smpCnt offset");
    result.smpCntStart = in.word("smpCnt start value");
    result.smpCntMax = in.word("smpCnt maximum");
    result.seqDataOffset = in.word("dataset offset");
    const int channels = in.byte("channel count");
    result.channelKinds = in.bytes(channels, "channel kinds");
    return result;
}

/// An offset above 255 takes two bytes, high byte first. What the board rewrites in a GOOSE frame
/// lies behind the 26 bytes that precede the goosePdu, so a smaller first byte is a high byte.
int readFrameOffset(FieldReader &in, const char *field)
{
    constexpr int kSmallest = 26;
    const int first = in.byte(field);
    return first > 0 && first < kSmallest ? first * 256 + in.byte(field) : first;
}

Command readGooseDescription(FieldReader &in)
{
    GooseDescriptionCommand result;
    result.stream = in.byte("stream");
    result.sqNumOffset = readFrameOffset(in, "sqNum offset");
    result.tOffset = readFrameOffset(in, "t offset");
    return result;
}

Command readDisableCurrentState(FieldReader &in)
{
    return DisableCurrentStateCommand{in.byte("flag")};
}

Command readStepCondition(FieldReader &in)
{
    StepConditionCommand result;
    result.step = in.byte("step");
    result.conditions = in.byte("conditions");
    result.milliseconds = in.word("step time");
    result.timeJump = in.byte("step after the time");
    result.trigger = in.byte("trigger");
    result.triggerJump = in.byte("step after the trigger");
    result.binaryInput = in.byte("binary input");
    result.binaryInputJump = in.byte("step after the binary input");
    return result;
}

Command readStateChange(FieldReader &in)
{
    return StateChangeCommand{in.byte("flag")};
}

Command readGooseControl(FieldReader &in)
{
    GooseControlCommand result;
    result.step = in.byte("step");
    result.group = in.byte("group");
    const int count = in.byte("item count");
    for (int i = 0; i < count && !in.isTruncated(); ++i) {
        GooseItem item;
        item.offset = in.word("item offset");
        item.length = in.byte("item length");
        item.data = in.bytes(item.length, "item data");
        result.items << item;
    }
    if (in.isTruncated())
        in.problem(QStringLiteral("Item count: the command announces %1 and ends within item %2.")
                       .arg(count)
                       .arg(result.items.size()));
    return result;
}

Command readStepOption(FieldReader &in)
{
    StepOptionCommand result;
    result.step = in.byte("step");
    result.option = in.byte("option");
    return result;
}

Ft3TemplateCommand readFt3Template(FieldReader &in)
{
    Ft3TemplateCommand result;
    result.group = in.byte("group");
    const int flag = in.byte("flag");
    result.flag = flag >> 4;
    result.headerLength = in.byte("header length");
    in.fixed(QByteArray(1, 0), "header length, second byte");
    result.dataSetLength = in.wordBig("dataset length");
    result.lnName = in.byte("LNName");
    result.dataSetName = in.byte("DataSetName");
    result.ldName = in.wordBig("LDName");
    result.phsAArtg = in.wordBig("PhsA.Artg");
    result.neutArtg = in.wordBig("Neut.Artg");
    result.phsAVrtg = in.wordBig("PhsA.Vrtg");
    result.time = in.wordBig("rated delay time");
    while (in.remaining() > 0 && !in.isTruncated())
        result.words << quint16(in.wordBig("word"));
    return result;
}

FrameTemplateCommand readEthernetTemplate(FieldReader &in)
{
    FrameTemplateCommand result;
    const int count = in.byte("stream and kind");
    result.stream = count % kStreamLimit;
    result.kind = count / kStreamLimit;
    if (result.kind > FrameTemplateCommand::GooseFrame)
        in.problem(QStringLiteral("Frame kind: 0 (sampled values) or 1 (GOOSE) expected, %1 found.")
                       .arg(result.kind));
    const int selector = in.byte("port selector");
    result.port = selector / 4 % kPortLimit + 1;
    if ((selector & 0xe3) != 1)
        in.problem(QStringLiteral("Port selector: 01, 05, ... or 1d expected, %1 found.")
                       .arg(hexNumber(quint64(selector), 2)));
    in.fixed(QByteArray(1, 0), "byte after the port selector");
    result.announcedSize = in.word("frame length");
    result.size = in.remaining();
    result.bytes = in.bytes(result.announcedSize, "Ethernet frame");
    const bool ends = !in.isTruncated() && in.remaining() <= 1; // there may be a pad byte
    if (ends)
        result.size = result.announcedSize;
    result.ethernet = decodeEthernetFrame(result.bytes);
    for (const QString &sentence : std::as_const(result.ethernet.problems))
        in.problem(sentence);
    return result;
}

/// Both kinds of template share the command code, and a port selector looks like an FT3 flag. What
/// tells them apart is the lengths: where an Ethernet template has its own, high byte last, an FT3
/// template has 0 between the low bytes of its header and its dataset length; the header is 2 or 4
/// longer.
bool isFt3Template(const QByteArray &frame)
{
    constexpr int kShortest = 28;
    if (frame.size() < kShortest || littleEndian16(frame, 7) != 0)
        return false;
    const quint8 header = byteAt(frame, 6);
    const quint8 dataSet = byteAt(frame, 9);
    const quint8 surplus = quint8(header - dataSet);
    return surplus == 2 || surplus == 4 || (header == 0 && dataSet == 0);
}

Command readFrameTemplate(FieldReader &in)
{
    if (isFt3Template(in.frame()))
        return readFt3Template(in);
    return readEthernetTemplate(in);
}

Command readStatusReadBack(FieldReader &in)
{
    return StatusReadBackCommand{in.byte("which")};
}

Command readStop(FieldReader &)
{
    return StopCommand{};
}

Command readFpgaReset(FieldReader &in)
{
    FpgaResetCommand result;
    result.select1 = in.byte("first selector");
    result.select2 = in.byte("second selector");
    return result;
}

Command readDspConfiguration(FieldReader &in)
{
    DspConfigurationCommand result;
    in.fixed(QByteArray(14, 0), "spare");
    result.digitalNumber = in.word("Dig_NO");
    in.fixed(QByteArray::fromHex("00010000"), "spare");
    result.gooseNumber = in.byte("GOOSE_NUM");
    return result;
}

Command readSubscription(FieldReader &in)
{
    constexpr int kMapped = 4;
    SubscriptionCommand result;
    result.group = in.byte("group");
    const int light = in.byte("light port and group");
    result.lightPort = (light >> 5) + 1;
    result.lightGroup = light & 0x1f;
    result.appId = in.word("APPID");
    result.logicChannel = in.word("logic channel");
    result.entryCount = in.word("entry count");
    const QByteArray map = in.bytes((result.entryCount + 1) / 2, "entry map");
    for (int i = 0; i < 2 * int(map.size()); ++i) {
        const int code = byteAt(map, i / 2) >> (i % 2 * 4) & 0x0f;
        if (code == kMapped && i < result.entryCount)
            result.mappedPositions << i + 1;
        else if (code != 0)
            in.problem(QStringLiteral("Entry map: code 0%1 expected for entry %2 of %3, %4 found.")
                           .arg(QLatin1String(i < result.entryCount ? " or 4" : ""))
                           .arg(i + 1)
                           .arg(result.entryCount)
                           .arg(code));
    }
    return result;
}

Command readSvCombination(FieldReader &in)
{
    SvCombinationCommand result;
    result.group = in.byte("group");
    const int light = in.byte("light port and group");
    result.lightPort = light >> 4;
    result.lightGroup = light & 0x0f;
    result.appId = in.word("APPID");
    result.protocol = in.byte("protocol");
    result.firstLogicChannel = in.byte("first logic channel");
    const int count = in.byte("channel count");
    for (int i = 0; i < count && !in.isTruncated(); ++i)
        result.entries << in.bytes(2, "channel entry");
    return result;
}

Command readSvChannel(FieldReader &in)
{
    SvChannelCommand result;
    result.logicChannel = in.byte("logic channel");
    result.properties = in.bytes(5, "properties");
    in.fixed(QByteArray(38, 0), "spare");
    return result;
}

constexpr int kNoSubcode = -1;
constexpr quint16 kControl = 0x8c90;

/// A frame begins with the code, written twice; those of the control family have a subcode.
struct Kind
{
    quint16 code;
    int subcode;
    Command (*read)(FieldReader &);
};

const Kind kinds[] = {
    {kControl, 0x01, readChannelSignal},
    {kControl, 0x02, readResetParameters},
    {kControl, 0x03, readStartStop},
    {kControl, 0x04, readSvDescription},
    {kControl, 0x05, readGooseDescription},
    {kControl, 0x06, readDisableCurrentState},
    {kControl, 0x07, readStepCondition},
    {kControl, 0x08, readStateChange},
    {kControl, 0x09, readGooseControl},
    {kControl, 0x0a, readStepOption},
    {0x8c91, kNoSubcode, readFrameTemplate},
    {0x8c92, kNoSubcode, readStatusReadBack},
    {0x8c93, kNoSubcode, readStop},
    {0x8453, kNoSubcode, readFpgaReset},
    {0x8812, kNoSubcode, readDspConfiguration},
    {0xac12, kNoSubcode, readSubscription},
    {0x9c12, kNoSubcode, readSvCombination},
    {0xbc12, kNoSubcode, readSvChannel},
};

const Kind *findKind(int code, int subcode)
{
    for (const Kind &kind : kinds) {
        if (kind.code == code && (kind.subcode == kNoSubcode || kind.subcode == subcode))
            return &kind;
    }
    return nullptr;
}

} // namespace

DecodedCommand decodeCommand(const QByteArray &paddedFrame)
{
    DecodedCommand result;
    result.frame = paddedFrame;

    FieldReader in(paddedFrame);
    const int code = in.wordBig("command code");
    const int again = in.wordBig("command code, second time");
    const Kind *kind = findKind(code, byteAt(paddedFrame, 4));
    if (in.isTruncated() || code != again || !kind) {
        result.problems = in.problems();
        if (!in.isTruncated())
            result.problems << QStringLiteral("Command code: %1 is none that the board knows.")
                                   .arg(hexText(paddedFrame.left(code == kControl ? 5 : 4)));
        return result;
    }

    if (kind->subcode != kNoSubcode)
        in.byte("subcode");
    result.command = kind->read(in);
    in.finish();
    result.problems = fewOf(in.problems());
    const bool whole = !in.isTruncated() && in.remaining() <= 1;
    if (whole)
        result.frame = in.consumed();
    return result;
}

bool isObeyed(const DecodedCommand &decoded)
{
    return decoded.problems.isEmpty()
        || std::holds_alternative<FrameTemplateCommand>(decoded.command);
}

QString commandName(const Command &command)
{
    return std::visit([](const auto &each) { return QString::fromLatin1(each.kName); }, command);
}

namespace {

template <typename... Kinds>
QStringList namesOf(const std::variant<Kinds...> *)
{
    return {QString::fromLatin1(Kinds::kName)...};
}

} // namespace

QStringList commandNames()
{
    return namesOf(static_cast<const Command *>(nullptr));
}

} // namespace virtualboard
