/// \file
/// The text of a configuration file, whatever its encoding.
#pragma once

#include "configuration/testconfiguration.h"

#include <optional>

namespace testconfiguration {

/// The characters of a configuration file.
struct FileText
{
    QByteArray utf8; ///< as in the file, if that is in UTF-8
    QString characters;
    bool isRecoded = false; ///< the file is in another encoding, whatever its declaration says
    std::optional<Remark> strayBytes; ///< the first that do not fit the encoding
};

/// The content of the file at \a path; nothing, with the reason in \a error, if it is not to be
/// had. Opens nothing that a reader could have to wait for.
[[nodiscard]] std::optional<FileText> readText(const QString &path, Remark &error);

} // namespace testconfiguration
