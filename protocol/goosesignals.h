/// \file
/// GOOSE signal control: which bytes of a published GOOSE frame the board overwrites when a step
/// begins. LumtarEngine::sendcmd09() sends the same command from the engine's own steps.
#pragma once

#include "lumtar_export.h"

#include <QByteArray>
#include <QString>
#include <QVector>

/// One change: a byte offset into the frame (2 bytes once set, 1 by default), a length (1) and the
/// new bytes.
///
/// Every setter returns 0 unless it says otherwise. Numbers take the fewest bytes, big-endian.
class LUMTAR_EXPORT GseSignal_Data
{
public:
    /// The item as the board reads it: ShiftingAdd, DateLenth, ShiftData.
    QByteArray data() const;

    int setNum_tag(int v); ///< not part of the item
    /// Frame offset, counted from the first byte of the destination MAC address. Returns 0; -1
    /// outside 0 to 65535, changing nothing.
    int setShiftingAdd(int v);
    int setDateLenth(int v); ///< number of new bytes
    /// New bytes: \a v, big-endian, in two bytes for 0 to 65535, more above.
    int setShiftData(int v);
    /// New bytes as hexadecimal text; other characters are skipped.
    int setShiftData(QString hex);

    QByteArray Num_tag = QByteArrayLiteral("\x00"); ///< not part of the item
    QByteArray ShiftingAdd = QByteArrayLiteral("\x00"); ///< frame offset, low byte first
    QByteArray DateLenth = QByteArrayLiteral("\x00"); ///< number of new bytes
    QByteArray ShiftData = QByteArrayLiteral("\x00"); ///< new bytes
};

/// GOOSE signal control command (8c 90 8c 90 09).
///
/// | Offset | Size | Field |
/// |---|---|---|
/// | 0 | 4 | head |
/// | 4 | 1 | code |
/// | 5 | 1 | StateNum |
/// | 6 | 1 | Group |
/// | 7 | 1 | Num_tag, empty until it is set |
/// | 8 | ... | items |
///
/// Numbers take the fewest bytes, big-endian; setters return 0 unless they say otherwise.
class LUMTAR_EXPORT GseSignal_Contral_UP
{
public:
    /// The command with the first DatavalueSize items of Data, or as many as Data has.
    QByteArray data() const;

    int setStateNum(int v); ///< step index
    int setGroup(int v); ///< GOOSE publication stream
    int setNum_tag(int v); ///< number of items; the field is empty until it is set
    /// Number of items that data() takes; resizes Data, new items being default ones. Returns 0; -1
    /// outside 0 to 65535, changing nothing.
    int setDatavalueSize(int n);

    QByteArray StateNum = QByteArrayLiteral("\x00"); ///< step index
    QByteArray Group = QByteArrayLiteral("\x00"); ///< GOOSE publication stream
    QByteArray Num_tag; ///< number of items
    QVector<GseSignal_Data> Data = QVector<GseSignal_Data>(6); ///< items
    QByteArray head = QByteArrayLiteral("\x8c\x90\x8c\x90"); ///< command code
    QByteArray code = QByteArrayLiteral("\x09"); ///< subcode
    int DatavalueSize = 6; ///< items that data() takes
};

/// Earlier form of the GOOSE signal control command (8c 90 8c 90 09).
///
/// | Offset | Size | Field |
/// |---|---|---|
/// | 0 | 4 | head |
/// | 4 | 1 | code |
/// | 5 | 1 | StateNum |
/// | 6 | 1 | Group |
/// | 7 | 2 | ShiftingAdd, low byte first |
/// | 9 | 2 | DateLenth, low byte first |
/// | 11 | ... | items |
///
/// Setters return 0 unless they say otherwise.
class LUMTAR_EXPORT GseSignal_Contral
{
public:
    /// The command with every item of Data; records the size of the item block in bytes.
    QByteArray data();
    /// Size of the item block that the last data() built, in bytes.
    int Data_valueSize() const;

    int setStateNum(int v); ///< step index; fewest bytes, big-endian
    int setGroup(int v); ///< GOOSE publication stream; fewest bytes, big-endian
    /// Frame offset. Returns 0; -1 outside 0 to 65535, changing nothing.
    int setShiftingAdd(int v);
    /// Length. Returns 0; -1 outside 0 to 65535, changing nothing.
    int setDateLenth(int v);
    /// Number of items; new ones are default ones. Returns 0; -1 outside 0 to 65535, changing
    /// nothing.
    int setDatacount(int n);
    /// No effect.
    int setData(QByteArray bytes);

    QByteArray StateNum = QByteArrayLiteral("\x00"); ///< step index
    QByteArray Group = QByteArrayLiteral("\x00"); ///< GOOSE publication stream
    QByteArray ShiftingAdd = QByteArrayLiteral("\x00\x00"); ///< frame offset, low byte first
    QByteArray DateLenth = QByteArrayLiteral("\x00\x00"); ///< length, low byte first
    QVector<GseSignal_Data> Data; ///< items
    QByteArray head = QByteArrayLiteral("\x8c\x90\x8c\x90"); ///< command code
    QByteArray code = QByteArrayLiteral("\x09"); ///< subcode
    int Data_valueSize_ = 0; ///< what Data_valueSize() returns
};
