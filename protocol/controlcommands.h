/// \file
/// The board's short control commands: stop, reset, start, status read-back, state changes.
#pragma once

#include "lumtar_export.h"

#include <QByteArray>

/// Stop command: 8c 93 8c 93.
class LUMTAR_EXPORT StopCMD
{
public:
    /// The 4-byte command.
    QByteArray data() const;

    QByteArray head = QByteArrayLiteral("\x8c\x93\x8c\x93"); ///< command code
};

/// Reset-message-parameters command: 8c 90 8c 90 02. A new configuration begins.
class LUMTAR_EXPORT ResetMsg_Parameter
{
public:
    /// The 5-byte command.
    QByteArray data() const;

    QByteArray head = QByteArrayLiteral("\x8c\x90\x8c\x90"); ///< command code
    QByteArray code = QByteArrayLiteral("\x02"); ///< subcode
};

/// Start and stop command, by default the start at 80 samples per cycle:
/// 8c 90 8c 90 03 01 fa 05 02 04 08.
class LUMTAR_EXPORT StopAndStart
{
public:
    /// Stores the low byte of \a v: 1 start, 0 stop. Returns 0.
    int setTest_tag(int v);
    /// Stores the sample interval in microseconds of \a samples per cycle at 50 Hz, that is
    /// 1000000 / (50 * samples), or 80 when \a samples is 0 or less. One byte for 79 samples and
    /// more, two below. Returns 0.
    int setTimevalue(int samples);
    /// The command: head, code, Test_tag, Timevalue, third to sixth.
    QByteArray data() const;

    QByteArray Test_tag = QByteArrayLiteral("\x01"); ///< 1 start, 0 stop
    QByteArray Timevalue = QByteArrayLiteral("\xfa"); ///< sample interval in microseconds
    QByteArray third = QByteArrayLiteral("\x05"); ///< fixed
    QByteArray fourth = QByteArrayLiteral("\x02"); ///< fixed
    QByteArray fifth = QByteArrayLiteral("\x04"); ///< fixed
    QByteArray sixth = QByteArrayLiteral("\x08"); ///< fixed
    QByteArray head = QByteArrayLiteral("\x8c\x90\x8c\x90"); ///< command code
    QByteArray code = QByteArrayLiteral("\x03"); ///< subcode
};

/// Status read-back command: 8c 92 8c 92 and the status asked for. The board's acknowledgement is
/// followed by a data reply, so LumtarEngine::expectDataReply is to be set before it is sent.
class LUMTAR_EXPORT CheckBackface
{
public:
    /// Stores the decimal digits of \a v, two per byte (12 gives 12 hexadecimal), without its sign.
    /// Returns 0.
    int setCommadflag(int v);
    /// The command: head, Commadflag.
    QByteArray data() const;

    QByteArray head = QByteArrayLiteral("\x8c\x92\x8c\x92"); ///< command code
    QByteArray Commadflag = QByteArrayLiteral("\x00"); ///< which status to read back
};

/// Disable-current-state command: 8c 90 8c 90 06 01.
class LUMTAR_EXPORT Disable_currentstate
{
public:
    /// Stores \a v in the fewest bytes, big-endian; a negative number takes eight.
    void setstate_flag(int v);
    /// The command: head, code, state_flag.
    QByteArray data() const;

    QByteArray state_flag = QByteArrayLiteral("\x01"); ///< passed through to the board
    QByteArray head = QByteArrayLiteral("\x8c\x90\x8c\x90"); ///< command code
    QByteArray code = QByteArrayLiteral("\x06"); ///< subcode
};

/// State-change command: 8c 90 8c 90 08 00.
class LUMTAR_EXPORT StateChange_Message
{
public:
    /// Stores \a v in the fewest bytes, big-endian; a negative number takes eight. Returns 0.
    int setFlag(int v);
    /// The command: head, code, Flag.
    QByteArray data() const;

    QByteArray Flag = QByteArrayLiteral("\x00"); ///< passed through to the board
    QByteArray head = QByteArrayLiteral("\x8c\x90\x8c\x90"); ///< command code
    QByteArray code = QByteArrayLiteral("\x08"); ///< subcode
};
