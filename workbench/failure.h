/// \file
/// Why something could not be done.
#pragma once

#include <QString>
#include <QStringList>

#include <tl/expected.hpp>

namespace workbench {

struct Failure
{
    enum Kind {
        Input, ///< what was asked for, or a file, is wrong; nothing has been sent
        Board, ///< the link could not be opened, or the board did not do its part
        Interrupted, ///< the user has had enough; the board is to be stopped
        Helper, ///< another program is missing or failed
    };
    Kind kind = Input;
    QString message; ///< one sentence that names the place and the reason
    QStringList others = {}; ///< further ones, where a file has several problems
};

/// The value, or why there is none.
template <typename T>
using Expected = tl::expected<T, Failure>;

/// To return where an Expected is wanted.
[[nodiscard]] inline tl::unexpected<Failure> failure(Failure::Kind kind, const QString &message)
{
    return tl::unexpected<Failure>(Failure{kind, message, {}});
}

} // namespace workbench
