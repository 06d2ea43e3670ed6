/// \file
/// The types that a test configuration can give to the entries of a published GOOSE dataset.
#pragma once

namespace goosetypes {

/// What a configuration's type code stands for.
struct DataType
{
    int code;
    int tag; ///< MMS data tag
    int width; ///< bytes of the value; SetdataGoose::setData_tag() looks at it for integers only
};

/// The type with this code; null if there is none.
const DataType *find(int code);

} // namespace goosetypes
