/// \file
/// Commands that set up the board itself.
#pragma once

#include "lumtar_export.h"

#include <QByteArray>

/// DSP configuration command (88 12 88 12), 25 bytes.
///
/// | Offset | Size | Field |
/// |---|---|---|
/// | 0 | 4 | head |
/// | 4 | 14 | Field |
/// | 18 | 1 | Dig_NO_Low |
/// | 19 | 1 | Dig_NO_High |
/// | 20 | 1 | Field_17 |
/// | 21 | 1 | Field_18 |
/// | 22 | 1 | Field_19 |
/// | 23 | 1 | Field_20 |
/// | 24 | 1 | GOOSE_NUM_Field |
class LUMTAR_EXPORT DSP_command
{
public:
    /// The command.
    QByteArray data() const;

    /// Dig_NO, 0 to 65535; any other number changes nothing. Returns 0.
    int setDig_NO(int n);
    /// GOOSE number, in the fewest bytes, big-endian (from 256 on the command grows; a negative
    /// number takes eight). Returns 0.
    int setGOOSE_NUM(int n);
    /// The number last given to setGOOSE_NUM(), 0 before.
    int ReturnGOOSE_NUM() const;

    QByteArray Field = QByteArray(14, '\0'); ///< Field_1 to Field_14, one byte each
    QByteArray Dig_NO_Low = QByteArrayLiteral("\x00"); ///< Dig_NO, low byte
    QByteArray Dig_NO_High = QByteArrayLiteral("\x00"); ///< Dig_NO, high byte
    QByteArray Field_17 = QByteArrayLiteral("\x00"); ///< fixed
    QByteArray Field_18 = QByteArrayLiteral("\x01"); ///< fixed
    QByteArray Field_19 = QByteArrayLiteral("\x00"); ///< fixed
    QByteArray Field_20 = QByteArrayLiteral("\x00"); ///< fixed
    QByteArray GOOSE_NUM_Field = QByteArrayLiteral("\x00"); ///< GOOSE number
    int GOOSE_NUM = 0; ///< GOOSE number as last set
    QByteArray head = QByteArrayLiteral("\x88\x12\x88\x12"); ///< command code
};

/// FPGA reset command: 84 53 84 53 ff ff.
class LUMTAR_EXPORT RestFPGA
{
public:
    /// The command: head, Reset_Select1, Reset_Select2.
    QByteArray data() const;

    void setGSE(int v); ///< no effect
    void setSMV(int v); ///< no effect

    QByteArray Reset_Select1 = QByteArrayLiteral("\xff"); ///< first selector
    QByteArray Reset_Select2 = QByteArrayLiteral("\xff"); ///< second selector
    QByteArray head = QByteArrayLiteral("\x84\x53\x84\x53"); ///< command code
};
