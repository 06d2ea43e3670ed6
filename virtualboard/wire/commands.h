#pragma once

#include "virtualboard/wire/ethernetframes.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

#include <optional>
#include <type_traits>
#include <variant>

namespace virtualboard {

// One struct per kind of command frame. Numbers that are wider than a byte travel low byte first
// unless a comment says otherwise.

/// 8c 90 8c 90 01: waveform of one analog output in one step.
struct ChannelSignalCommand
{
    static constexpr const char *kName = "channel signal";
    int step = 0;
    int channel = 0; ///< 0 to 7: Ia1 Ia2 Ib1 Ib2 Ic1 Ic2 In1 In2, 8 to 15: Va1 ... Vn2
    float scaleFactor = 0; ///< V or A per count of the sampled-value stream
    int peakFlag = 0;
    float frequency = 0; ///< Hz
    float amplitude = 0; ///< V or A
    float phase = 0; ///< degrees
    std::optional<float> phaseJump; ///< degrees; absent in the 24-byte form of the command
};

/// 8c 90 8c 90 02: forget all streams; a new configuration follows.
struct ResetCommand
{
    static constexpr const char *kName = "reset message parameters";
};

/// 8c 90 8c 90 03.
struct StartStopCommand
{
    static constexpr const char *kName = "start/stop";
    bool start = false;
    int sampleInterval = 0; ///< microseconds
    QByteArray parameters; ///< the last four bytes
};

/// 8c 90 8c 90 04: where the run-time fields of a sampled-value frame lie, and what feeds it.
struct SvDescriptionCommand
{
    static constexpr const char *kName = "SV stream description";
    int stream = 0; ///< 0 to 63
    int protocol = 0; ///< 0 to 3
    int number = 0; ///< the stream number again
    int smpCntOffset = 0;
    int smpCntStart = 0;
    int smpCntMax = 0; ///< the counter wraps to 0 here
    int seqDataOffset = 0;
    QByteArray channelKinds; ///< per dataset entry: number of the analog channel, or ff for none
};

/// 8c 90 8c 90 05: where the run-time fields of a GOOSE frame lie.
struct GooseDescriptionCommand
{
    static constexpr const char *kName = "GOOSE stream description";
    int stream = 0;
    int sqNumOffset = 0; ///< high byte first when it takes two bytes
    int tOffset = 0; ///< high byte first when it takes two bytes
};

/// 8c 90 8c 90 06.
struct DisableCurrentStateCommand
{
    static constexpr const char *kName = "disable current state";
    int flag = 0;
};

/// 8c 90 8c 90 07: how long a step lasts and where the sequence goes from it.
struct StepConditionCommand
{
    static constexpr const char *kName = "step condition";
    int step = 0;
    int conditions = 0; ///< flags; bit 3 enables the binary-input transition
    int milliseconds = 0;
    int timeJump = 0;
    int trigger = 0;
    int triggerJump = 0;
    int binaryInput = 0;
    int binaryInputJump = 0;
};

/// 8c 90 8c 90 08.
struct StateChangeCommand
{
    static constexpr const char *kName = "state change";
    int flag = 0;
};

/// One change that a GOOSE signal control command makes in the published frame.
struct GooseItem
{
    int offset = 0; ///< from the first byte of the destination MAC address
    int length = 0; ///< as announced
    QByteArray data;
};

/// 8c 90 8c 90 09: bytes to write into a published GOOSE frame when a step begins.
struct GooseControlCommand
{
    static constexpr const char *kName = "GOOSE signal control";
    int step = 0;
    int group = 0; ///< number of the GOOSE publication stream
    QVector<GooseItem> items;
};

/// 8c 90 8c 90 0a.
struct StepOptionCommand
{
    static constexpr const char *kName = "step option";
    int step = 0;
    int option = 0;
};

/// 8c 91 8c 91: an Ethernet frame to publish.
struct FrameTemplateCommand
{
    static constexpr const char *kName = "frame-template download";
    enum Kind { SampledValueFrame = 0, GooseFrame = 1 };
    int kind = SampledValueFrame; ///< 2 and 3 have no meaning
    int stream = 0; ///< 0 to 63
    int port = 0; ///< 1 to 8
    int announcedSize = 0; ///< of the frame, as the length field says
    int size = 0; ///< of what came in its place
    QByteArray bytes; ///< the frame from the destination MAC address on
    EthernetFrame ethernet; ///< the same, decoded
};

/// 8c 91 8c 91 with an FT3 header (IEC 60044-8): words are high byte first.
struct Ft3TemplateCommand
{
    static constexpr const char *kName = "FT3 frame-template download";
    int group = 0;
    int flag = 0;
    int headerLength = 0;
    int dataSetLength = 0;
    int lnName = 0;
    int dataSetName = 0;
    int ldName = 0;
    int phsAArtg = 0;
    int neutArtg = 0;
    int phsAVrtg = 0;
    int time = 0;
    QVector<quint16> words; ///< all that follows: counter, channels, status words
};

/// 8c 92 8c 92: asks for a data reply after the acknowledgement.
struct StatusReadBackCommand
{
    static constexpr const char *kName = "status read-back";
    int which = 0;
};

/// 8c 93 8c 93.
struct StopCommand
{
    static constexpr const char *kName = "stop";
};

/// 84 53 84 53.
struct FpgaResetCommand
{
    static constexpr const char *kName = "FPGA reset";
    int select1 = 0;
    int select2 = 0;
};

/// 88 12 88 12.
struct DspConfigurationCommand
{
    static constexpr const char *kName = "DSP configuration";
    int digitalNumber = 0;
    int gooseNumber = 0; ///< one byte
};

/// ac 12 ac 12: a GOOSE stream to watch.
struct SubscriptionCommand
{
    static constexpr const char *kName = "GOOSE subscription";
    int group = 0;
    int lightPort = 0; ///< 1 to 8
    int lightGroup = 0; ///< 0 to 31
    int appId = 0;
    int logicChannel = 0; ///< of the first mapped entry; the others follow
    int entryCount = 0; ///< of the subscribed dataset
    QVector<int> mappedPositions; ///< counted from 1
};

/// 9c 12 9c 12.
struct SvCombinationCommand
{
    static constexpr const char *kName = "SV combination";
    int group = 0;
    int lightPort = 0; ///< 0 to 15
    int lightGroup = 0; ///< 0 to 15
    int appId = 0;
    int protocol = 0;
    int firstLogicChannel = 0;
    QVector<QByteArray> entries; ///< two bytes each
};

/// bc 12 bc 12.
struct SvChannelCommand
{
    static constexpr const char *kName = "SV channel";
    int logicChannel = 0;
    QByteArray properties; ///< five bytes
};

/// A frame whose code is none of the above.
struct UnknownCommand
{
    static constexpr const char *kName = "unknown command";
};

using Command =
    std::variant<UnknownCommand, ChannelSignalCommand, ResetCommand, StartStopCommand,
                 SvDescriptionCommand, GooseDescriptionCommand, DisableCurrentStateCommand,
                 StepConditionCommand, StateChangeCommand, GooseControlCommand, StepOptionCommand,
                 FrameTemplateCommand, Ft3TemplateCommand, StatusReadBackCommand, StopCommand,
                 FpgaResetCommand, DspConfigurationCommand, SubscriptionCommand,
                 SvCombinationCommand, SvChannelCommand>;

struct DecodedCommand
{
    Command command;
    /// One sentence per fault: truncation, surplus bytes, a pad byte that is not 0, fixed bytes
    /// with another value, counts and lengths that do not fit, faults inside a frame template.
    QStringList problems;
    /// The frame as its sender built it, without the pad byte, when the kind tells its own length
    /// and all of it is there; otherwise the padded frame.
    QByteArray frame;
};

/// Whether the board obeys the command: one without problems of its own. The bytes of a template
/// are published as they are; only some faults of them forbid that.
[[nodiscard]] bool isObeyed(const DecodedCommand &decoded);

/// For the overload of a visitor that lists the commands with which it has nothing to do. Without
/// one for all others, a new command that a visitor forgets does not compile.
template <typename Command, typename... Listed>
constexpr bool kIsOneOf = (std::is_same_v<Command, Listed> || ...);

/// Decodes one command frame.
///
/// \param paddedFrame as openEnvelope() returns it; any bytes of any size are taken, nothing
///                     outside of them is read, and fields that are not there read as 0.
[[nodiscard]] DecodedCommand decodeCommand(const QByteArray &paddedFrame);

/// Name of the command's kind, in lower case ("channel signal").
[[nodiscard]] QString commandName(const Command &command);
/// The names of all kinds.
[[nodiscard]] QStringList commandNames();

} // namespace virtualboard
