#include "virtualboard/wire/bytes.h"

#include <cstddef>

#include <iconv.h>

namespace virtualboard {

namespace {

/// Null if \a bytes are no text in this encoding.
QString decoded(const QByteArray &bytes, const char *encoding)
{
    const iconv_t converter = iconv_open("UTF-8", encoding);
    if (converter == iconv_t(-1)) // NOLINT(performance-no-int-to-ptr): as iconv(3) has it
        return {};
    constexpr int kMostPerByte = 4;
    QByteArray in = bytes;
    QByteArray out(int(bytes.size()) * kMostPerByte, '\0');
    char *from = in.data();
    char *to = out.data();
    auto fromLeft = std::size_t(in.size());
    auto toLeft = std::size_t(out.size());
    const bool isSound = iconv(converter, &from, &fromLeft, &to, &toLeft) != std::size_t(-1);
    iconv_close(converter);
    return isSound ? QString::fromUtf8(out.constData(), int(to - out.constData())) : QString();
}

} // namespace

QString wireText(const QByteArray &bytes)
{
    for (const char *const encoding : {"UTF-8", "GBK"}) {
        const QString text = decoded(bytes, encoding);
        if (!text.isNull())
            return text;
    }
    return QString::fromLatin1(bytes);
}

} // namespace virtualboard
