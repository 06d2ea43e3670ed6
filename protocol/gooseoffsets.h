/// \file
/// The record of where the run-time fields of a published GOOSE frame lie.
#pragma once

#include "lumtar_export.h"

#include <QtGlobal>

/// Where the run-time fields of one published GOOSE frame lie.
///
/// Message_goose::data() fills the record; the state sequence reads it to tell the board which
/// bytes to overwrite when a step begins. An offset counts bytes from the first byte of the
/// destination MAC address; the header of the download command is not counted.
///
/// The record owns its arrays and cannot be copied.
class LUMTAR_EXPORT GooseDataOffsetAddr
{
public:
    GooseDataOffsetAddr() = default; ///< no slots, no arrays
    ~GooseDataOffsetAddr(); ///< frees the arrays
    Q_DISABLE_COPY(GooseDataOffsetAddr)

    /// Allots \a n entry slots, all zero, in place of the present ones. \a n is the number of
    /// dataset entries; below 0 counts as 0, which leaves no arrays. A number above 65535 is
    /// refused with a debug line and changes nothing. ChangeCount and StNumOffset are left as they
    /// were.
    void SetPara(int n);

    int Num = 0; ///< number of entry slots
    quint8 *DataTag = nullptr; ///< per entry: first byte of its tag, 0 if the tag is empty
    quint8 *DataLen = nullptr; ///< per entry: first byte of its length field, 0 if that is empty
    quint16 *DataOffset = nullptr; ///< per entry: frame offset of the first byte of its value
    quint8 ChangeCount = 0; ///< scratch counter of the state sequence
    quint8 StNumOffset = 0; ///< low eight bits of the frame offset of the stNum value
};
