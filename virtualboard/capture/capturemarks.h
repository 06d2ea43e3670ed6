#pragma once

#include "virtualboard/play/playback.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <array>
#include <optional>
#include <variant>

namespace virtualboard {

constexpr quint16 kEtherTypeMark = 0x88b5; ///< IEEE Std 802, local experimental EtherType 1

/// Which analog channel feeds which dataset entry of an SV stream.
struct StreamMark
{
    int appId = 0;
    QString svId;
    QStringList channels; ///< per dataset entry: "Ia1" ... "Vn2", or empty
};

/// A change of steps.
struct StepMark
{
    Transition transition;
    std::array<float, kAnalogChannels> scale = {}; ///< V or A per count; 0: unknown
};

/// A trigger, or a change of a logic channel, whether or not it left a step.
struct InputMark
{
    RecordedInput input;
};

using Mark = std::variant<StreamMark, StepMark, InputMark>;

/// The mark as an Ethernet frame (docs/virtual-board.md); at most 1518 bytes: channel names that do
/// not fit are left out at the end, and an svID ends after 129 characters (IEC 61850-9-2).
[[nodiscard]] QByteArray encodeMark(const Mark &mark);
/// Nothing if the frame is no mark, or none that can be understood: a member is missing, of another
/// type or out of range (times: 0 to 1e9 s). Members that it does not know are ignored.
[[nodiscard]] std::optional<Mark> decodeMark(const QByteArray &frame);

} // namespace virtualboard
