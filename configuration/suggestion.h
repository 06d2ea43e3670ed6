/// \file
/// What somebody may have meant who wrote a word that is not known.
#pragma once

#include <QString>
#include <QStringList>

#include <algorithm>
#include <numeric>
#include <vector>

namespace suggestion {

/// \a word as it looks: without case, and without what differs in few typefaces.
inline QString appearance(const QString &word)
{
    return word.toLower()
        .replace(QLatin1Char('l'), QLatin1Char('1'))
        .replace(QLatin1Char('o'), QLatin1Char('0'));
}

/// The fewest characters to insert, drop, replace or swap with their neighbour that make \a b of
/// \a a.
inline int distance(const QString &a, const QString &b)
{
    const auto width = std::size_t(b.size()) + 1;
    std::vector<int> beforeLast(width);
    std::vector<int> last(width);
    std::vector<int> row(width);
    std::iota(row.begin(), row.end(), 0);
    for (int i = 1; i <= a.size(); ++i) {
        std::swap(beforeLast, last);
        std::swap(last, row);
        row[0] = i;
        for (int j = 1; j <= b.size(); ++j) {
            const auto at = std::size_t(j);
            const bool isSame = a[i - 1] == b[j - 1];
            row[at] = std::min({last[at] + 1, row[at - 1] + 1, last[at - 1] + (isSame ? 0 : 1)});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                row[at] = std::min(row[at], beforeLast[at - 2] + 1);
        }
    }
    return row.back();
}

/// The one of \a known that is most like \a word, the first of several; empty if none is much like
/// it. A long \a word takes no longer than a short one.
inline QString nearest(const QString &word, const QStringList &known)
{
    const int most = word.size() < 5 ? 1 : 2; // more and it would be guessing
    QString result;
    int least = most + 1;
    for (const QString &each : known) {
        const int difference = int(each.size()) - int(word.size());
        if (word.size() < 2 || difference > most || -difference > most)
            continue;
        const int changes = distance(appearance(word), appearance(each));
        if (changes < least) {
            least = changes;
            result = each;
        }
    }
    return result;
}

/// "; did you mean Ia1?", or nothing.
inline QString didYouMean(const QString &word, const QStringList &known)
{
    const QString meant = nearest(word, known);
    return meant.isEmpty() ? QString() : QStringLiteral("; did you mean %1?").arg(meant);
}

/// "unknown option --wath; did you mean --watch?"; the names are without their dashes.
inline QString unknownOption(const QString &name, const QStringList &known)
{
    const QString dashes = name.size() > 1 ? QStringLiteral("--") : QStringLiteral("-");
    const QString meant = nearest(name, known);
    return QStringLiteral("unknown option ") + dashes + name
        + (meant.isEmpty() ? QString() : QStringLiteral("; did you mean --%1?").arg(meant));
}

} // namespace suggestion
