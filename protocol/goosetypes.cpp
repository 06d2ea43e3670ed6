#include "protocol/goosetypes.h"

#include "protocol/gooseframe.h"

#include <algorithm>
#include <array>

namespace goosetypes {

namespace {

constexpr std::array kDataTypes{
    DataType{1, kBooleanTag, 1},    DataType{2, 0x86, 1}, // unsigned
    DataType{3, kIntegerTag, 4},    DataType{4, kIntegerTag, 4},
    DataType{5, kUtcTimeTag, 8},    DataType{7, 0x87, 5}, // floating point
    DataType{12, 0x8a, 2}, // visible string
    DataType{13, kBitStringTag, 2}, DataType{15, kIntegerTag, 1},
    DataType{16, kIntegerTag, 2},   DataType{137, 0x89, 2}, // octet string
    DataType{141, 0x8d, 2}, // BCD
};

} // namespace

const DataType *find(int code)
{
    const auto *const known =
        std::find_if(kDataTypes.begin(), kDataTypes.end(),
                     [code](const DataType &row) { return row.code == code; });
    return known == kDataTypes.end() ? nullptr : known;
}

} // namespace goosetypes
