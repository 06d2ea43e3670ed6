/// \file
/// The commands that describe one step of a state sequence. LumtarEngine::ExecSeq() sends the same
/// commands from its own steps.
#pragma once

#include "lumtar_export.h"

#include <QByteArray>

/// Step condition command (8c 90 8c 90 07): how long a step lasts and where the sequence goes on.
///
/// | Offset | Size | Field |
/// |---|---|---|
/// | 0 | 4 | head |
/// | 4 | 1 | code |
/// | 5 | 1 | State_tag |
/// | 6 | 1 | CtlCondition |
/// | 7 | 2 | StateTime, milliseconds, low byte first |
/// | 9 | 1 | StateTime_jump |
/// | 10 | 1 | StateTrige |
/// | 11 | 1 | StateTrige_jump |
/// | 12 | 1 | BinInp |
/// | 13 | 1 | BinInp_jump |
///
/// Setters of whole numbers take the fewest bytes, big-endian, so a value above 255 (or a negative
/// one, eight bytes) moves the later fields; they return 0.
class LUMTAR_EXPORT StepCondition
{
public:
    /// The command.
    QByteArray packetdata() const;

    /// Step index. Stores the decimal digits of \a v, two per byte (12 gives 12 hexadecimal).
    int setState_tag(int v);
    /// Transition-condition flags; see CStep::ctlCondition. The binary input is setBinInp()'s.
    int setCtlCondition(int v);
    /// Duration of the step, stored in whole milliseconds, rounded toward zero; a negative time
    /// counts as 0, which never runs out. Returns 0; -1 for 65.536 s and above and for
    /// not-a-number, changing nothing.
    int setStateTime(float seconds);
    /// Step to go to when the time runs out. Stores decimal digits, as setState_tag(): 255 becomes
    /// two bytes, which moves the later fields. What ends the sequence is a step that does not
    /// exist, such as 5.
    int setStateTime_jump(int v);
    /// Trigger setting; 0: no trigger ends the step.
    int setStateTrige(int v);
    /// Step to go to on the trigger; one that does not exist, such as 255, ends the sequence.
    int setStateTrige_jump(int v);
    /// Whether the binary input ends the step, 1 or 0.
    int setBinInp(int v);
    /// Step to go to on the binary input; one that does not exist, such as 255, ends the sequence.
    int setBinInp_jump(int v);

    int getStateTime_jump() const; ///< first byte of StateTime_jump, 0 to 255; 0 when it is empty
    int getStateTrige_jump() const; ///< first byte of StateTrige_jump, 0 to 255; 0 when it is empty
    int getBinInp_jump() const; ///< first byte of BinInp_jump, 0 to 255; 0 when it is empty

    QByteArray State_tag = QByteArrayLiteral("\x00"); ///< step index
    QByteArray CtlCondition = QByteArrayLiteral("\x00"); ///< transition-condition flags
    QByteArray StateTime = QByteArrayLiteral("\x00\x00"); ///< milliseconds, low byte first
    QByteArray StateTime_jump = QByteArrayLiteral("\x00"); ///< next step after the time
    QByteArray StateTrige = QByteArrayLiteral("\x00"); ///< trigger setting
    QByteArray StateTrige_jump = QByteArrayLiteral("\x00"); ///< next step on the trigger
    QByteArray BinInp = QByteArrayLiteral("\x00"); ///< 1: the binary input ends the step
    QByteArray BinInp_jump = QByteArrayLiteral("\x00"); ///< next step on the binary input
    QByteArray head = QByteArrayLiteral("\x8c\x90\x8c\x90"); ///< command code
    QByteArray code = QByteArrayLiteral("\x07"); ///< subcode
};

/// Channel signal command (8c 90 8c 90 01): the waveform of one analog output in one step, 24
/// bytes. The engine's own command has the phase jump as a 28-byte frame's last field; this one
/// ends before it.
///
/// | Offset | Size | Field |
/// |---|---|---|
/// | 0 | 4 | head |
/// | 4 | 1 | code |
/// | 5 | 1 | Stat |
/// | 6 | 1 | Count |
/// | 7 | 4 | Scalefactor |
/// | 11 | 1 | PeakFlag |
/// | 12 | 4 | Frequency |
/// | 16 | 4 | Peakvalue |
/// | 20 | 4 | PhasePosition |
///
/// The setters of real numbers store an IEEE 754 single-precision number, low byte first, and
/// return 0; -1 when the field does not hold four bytes, changing nothing.
class LUMTAR_EXPORT ChannelSignalControl
{
public:
    /// The command.
    QByteArray data() const;

    /// Step index. Stores the decimal digits of \a v, two per byte. Returns 0.
    int setStat(int v);
    /// Channel number: 0 to 7 currents, 8 to 15 voltages; fewest bytes, big-endian. Returns 0.
    int setCount(int v);
    int setScalefactor(float v); ///< volts or amperes per count
    int setFrequency(float hertz); ///< Hz
    int setPeakvalue(float v); ///< volts or amperes, peak
    int setPhasePosition(float degrees); ///< degrees

    QByteArray Stat = QByteArrayLiteral("\x00"); ///< step index
    QByteArray Count = QByteArrayLiteral("\x00"); ///< channel number
    QByteArray Scalefactor = QByteArrayLiteral("\x6f\x12\x83\x3a"); ///< 0.001
    QByteArray PeakFlag = QByteArrayLiteral("\x00"); ///< stays 0
    QByteArray Frequency = QByteArrayLiteral("\x00\x00\x48\x42"); ///< 50 Hz
    QByteArray Peakvalue = QByteArrayLiteral("\xa4\xb4\x29\x42"); ///< 42.426407, 30 times root 2
    QByteArray PhasePosition = QByteArrayLiteral("\x00\x00\x00\x00"); ///< 0 degrees
    QByteArray head = QByteArrayLiteral("\x8c\x90\x8c\x90"); ///< command code
    QByteArray code = QByteArrayLiteral("\x01"); ///< subcode
};
