#include "configuration/filetext.h"

#include "configuration/places.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTextCodec>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <system_error>

namespace testconfiguration {

namespace {

constexpr qint64 kMaxFileSize = 16 * 1024 * 1024;

Remark problem(const QString &text, Place place = {})
{
    return {Remark::Error, place, text};
}

Place placeAt(const QString &text, int index)
{
    PlaceCounter counter(text);
    counter.moveTo(index);
    return counter.place();
}

/// Why nothing can be read at \a path, though perhaps something is there; empty for a file.
QString whyNoFile(const QString &path)
{
    using std::filesystem::file_type;
    static const struct
    {
        file_type type;
        const char *name;
    } others[] = {{file_type::directory, "a directory"},
                  {file_type::fifo, "a pipe"},
                  {file_type::socket, "a socket"},
                  {file_type::character, "a device"},
                  {file_type::block, "a device"}};
    if (QFileInfo(path).isFile())
        return {};
    std::error_code error;
    const auto status = std::filesystem::status(QFile::encodeName(path).toStdString(), error);
    const auto other =
        std::find_if(std::begin(others), std::end(others),
                     [&status](const auto &each) { return each.type == status.type(); });
    return other == std::end(others)
        ? QStringLiteral("no such file")
        : QStringLiteral("is %1, not a file").arg(QLatin1String(other->name));
}

/// Whether a file in this encoding can begin with a declaration that is read byte by byte.
bool isReadableByteByByte(const QTextCodec *codec)
{
    return !codec->name().startsWith("UTF-16") && !codec->name().startsWith("UTF-32");
}

/// Why the encoding that a file declares is not to be used; else \a codec is that of a file in
/// another encoding than UTF-8, and null for UTF-8. Nothing but UTF-8 is left to the parser, whose
/// codecs differ between the versions of Qt: configuration tools write GBK.
std::optional<Remark> findCodec(const QByteArray &bytes, QTextCodec *&codec)
{
    codec = nullptr;
    if (bytes.startsWith(QByteArray("<\0", 2)))
        codec = QTextCodec::codecForName("UTF-16LE");
    else if (bytes.startsWith(QByteArray("\0<", 2)))
        codec = QTextCodec::codecForName("UTF-16BE");
    else
        codec = QTextCodec::codecForUtfText(bytes, nullptr);
    if (codec)
        return std::nullopt;

    static const QRegularExpression declaration(
        QStringLiteral("^<\\?xml[^>]*encoding\\s*=\\s*[\"']([^\"'>]+)[\"']"));
    constexpr int kLongestDeclaration = 200;
    const QString start = QString::fromLatin1(bytes.left(kLongestDeclaration));
    const QRegularExpressionMatch match = declaration.match(start);
    const QString name = match.captured(1);
    if (name.isEmpty() || name.compare(QLatin1String("UTF-8"), Qt::CaseInsensitive) == 0)
        return std::nullopt;
    const Place place = placeAt(start, int(match.capturedStart(1)));
    codec = QTextCodec::codecForName(name.toLatin1());
    if (!codec)
        return problem(QStringLiteral("the encoding %1 is unknown").arg(name), place);
    if (!isReadableByteByByte(codec))
        return problem(QStringLiteral("the file is not in %1, which it declares").arg(name), place);
    return std::nullopt;
}

/// The first U+FFFD that stands for bytes that are no UTF-8; -1 if there is none.
int findStray(const QByteArray &utf8, const QString &characters, int &byte)
{
    const QString replacement(QChar::ReplacementCharacter);
    const QByteArray written = replacement.toUtf8();
    int before = 0;
    byte = 0;
    for (int at = int(characters.indexOf(replacement)); at >= 0;
         at = int(characters.indexOf(replacement, before))) {
        byte += int(QStringView(characters).mid(before, at - before).toUtf8().size());
        if (utf8.mid(byte, written.size()) != written)
            return at;
        byte += int(written.size());
        before = at + 1;
    }
    return -1;
}

void readUtf8(const QByteArray &bytes, FileText &text)
{
    text.utf8 = bytes;
    text.characters = QString::fromUtf8(bytes);
    int byte = 0;
    const int stray = findStray(bytes, text.characters, byte);
    if (stray < 0)
        return;
    const int value = byte < bytes.size() ? quint8(bytes[byte]) : 0;
    text.strayBytes =
        problem(QStringLiteral(
                    "the byte %1 is no UTF-8; a file in another encoding begins with a line such "
                    "as <?xml version=\"1.0\" encoding=\"GBK\"?>")
                    .arg(value, 2, 16, QLatin1Char('0')),
                placeAt(text.characters, stray));
}

void recode(const QByteArray &bytes, const QTextCodec *codec, FileText &text)
{
    text.characters = codec->toUnicode(bytes);
    text.utf8 = text.characters.toUtf8();
    text.isRecoded = true;
    const int stray = int(text.characters.indexOf(QChar(QChar::ReplacementCharacter)));
    if (stray >= 0)
        text.strayBytes = Remark{Remark::Warning, placeAt(text.characters, stray),
                                 QStringLiteral("bytes that are no %1 are replaced (told once)")
                                     .arg(QString::fromLatin1(codec->name()))};
}

} // namespace

std::optional<FileText> readText(const QString &path, Remark &error)
{
    const auto refuse = [&error](const QString &text) {
        error = problem(text);
        return std::nullopt;
    };
    if (const QString reason = whyNoFile(path); !reason.isEmpty())
        return refuse(reason);
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) // read at one go
        return refuse(file.errorString());
    if (file.size() > kMaxFileSize)
        return refuse(QStringLiteral("%1 bytes is above %2").arg(file.size()).arg(kMaxFileSize));
    const QByteArray bytes = file.readAll();
    QTextCodec *codec = nullptr;
    if (const std::optional<Remark> fault = findCodec(bytes, codec)) {
        error = *fault;
        return std::nullopt;
    }
    FileText text;
    if (codec)
        recode(bytes, codec, text);
    else
        readUtf8(bytes, text);
    if (QStringView(text.characters).trimmed().isEmpty())
        return refuse(QStringLiteral("is empty"));
    return text;
}

} // namespace testconfiguration
