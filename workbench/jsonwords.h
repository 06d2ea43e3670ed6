/// \file
/// Words for JSON values in messages.
#pragma once

#include <QJsonValue>
#include <QString>
#include <QStringList>

namespace workbench::jsonwords {

/// "a number", "an object", ...
[[nodiscard]] QString nameOf(QJsonValue::Type type);
/// "must be an object, not a list"
[[nodiscard]] QString mustBe(QJsonValue::Type expected, QJsonValue::Type found);
/// At most 10 significant digits.
[[nodiscard]] QString numberText(double value);
/// \a text in quotation marks; a long one is cut.
[[nodiscard]] QString quoted(const QString &text);
[[nodiscard]] QString quotedList(const QStringList &words);

} // namespace workbench::jsonwords
