#include "lumtarengine.h"

#include "configurationattributes.h"
#include "configurationlimits.h"
#include "textcodec.h"

#include <QCoreApplication>
#include <QDebug>
#include <QDomDocument>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTextCodec>
#include <QXmlStreamReader>

#include <algorithm>
#include <iterator>

namespace {

constexpr qint64 kMaxFileSize = 64 * 1024 * 1024;
constexpr qint64 kMaxExpandedText = kMaxFileSize; // characters, once entities are expanded
constexpr int kMaxDepth = 100; // a document tree is taken down recursively
constexpr int kMaxUninspectedTags = 10000; // so few cannot nest dangerously deep

/// The bytes of a configuration file and, where the parser cannot decode them by itself, their
/// codec.
struct XmlText
{
    QByteArray bytes;
    QTextCodec *codec = nullptr;
};

/// The codec that the XML declaration names, for the encodings besides Unicode: configuration tools
/// write GBK, which the parser does not know in every version of Qt.
QTextCodec *declaredCodec(const QByteArray &bytes)
{
    static const QRegularExpression declaration(
        QStringLiteral("^<\\?xml[^>]*encoding\\s*=\\s*[\"']([^\"'>]+)[\"']"));
    constexpr int kLongestDeclaration = 200;
    const QString start = QString::fromLatin1(bytes.left(kLongestDeclaration));
    const QString name = declaration.match(start).captured(1);
    if (name.isEmpty() || name.startsWith(QLatin1String("UTF"), Qt::CaseInsensitive))
        return nullptr;
    return QTextCodec::codecForName(name.toLatin1());
}

void feed(QXmlStreamReader &reader, const XmlText &text)
{
    reader.setNamespaceProcessing(false);
    if (text.codec)
        reader.addData(text.codec->toUnicode(text.bytes));
    else
        reader.addData(text.bytes);
}

/// Whether the document could nest deeply or expand entities. Most cannot, which a glance shows.
bool needsInspection(const XmlText &text)
{
    return text.codec || text.bytes.contains('\0') || text.bytes.contains("<!DOCTYPE")
        || std::count(text.bytes.begin(), text.bytes.end(), '<') > kMaxUninspectedTags;
}

/// Reads the document as a stream, in bounded memory, to see that a tree of it stays bounded too.
bool staysBounded(const XmlText &text)
{
    QXmlStreamReader reader;
    feed(reader, text);
    int depth = 0;
    qint64 expandedText = 0;
    while (!reader.atEnd() && depth <= kMaxDepth && expandedText <= kMaxExpandedText) {
        reader.readNext();
        if (reader.isEndElement())
            --depth;
        else if (reader.isStartElement())
            ++depth;
        expandedText += reader.text().size();
        const QXmlStreamAttributes attributes = reader.attributes();
        for (const QXmlStreamAttribute &attribute : attributes)
            expandedText += attribute.value().size();
    }
    return reader.atEnd() && !reader.hasError();
}

/// The document of the configuration at \a path; empty when there is none to be had.
QDomDocument readConfiguration(const QString &path)
{
    const QFileInfo info(path);
    if (!info.isFile())
        return {};
    if (info.size() > kMaxFileSize) {
        qDebug() << "InitGPP: refused, file of" << info.size() << "bytes is above" << kMaxFileSize;
        return {};
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) // read at one go
        return {};
    XmlText text{file.readAll()};
    text.codec = declaredCodec(text.bytes);
    if (needsInspection(text) && !staysBounded(text))
        return {};

    QXmlStreamReader reader;
    feed(reader, text);
    QDomDocument document;
    if (!document.setContent(&reader, false))
        return {};
    return document;
}

} // namespace

int LumtarEngine::InitGPP(char *configPath)
{
    const QDomDocument document = readConfiguration(textcodec::fromCString(configPath));
    const QDomElement root = document.documentElement();
    if (root.isNull() || !attributes::hasTag(root, QLatin1String("ied")))
        return 0;

    QDomElement child = root.firstChildElement();
    resetCounters();
    SendCommand(QByteArrayLiteral("\x8c\x90\x8c\x90\x02"));
    QByteArray work;
    for (; !child.isNull(); child = child.nextSiblingElement()) {
        QCoreApplication::processEvents();
        // A stream beyond a limit is refused there and takes no number.
        if (attributes::hasTag(child, QLatin1String("in_goose"))) {
            SetGoose(child, work);
            gooseCount = static_cast<quint8>(qMin(gooseCount + 1, kMaxGooseStreams));
        } else if (attributes::hasTag(child, QLatin1String("in_smv"))) {
            SetSMV(child, work);
            smvCount = static_cast<quint8>(qMin(smvCount + 1, kMaxSvStreams));
        } else if (attributes::hasTag(child, QLatin1String("goose"))) {
            SetBinMap(child, work);
        }
    }
    return 1;
}

void LumtarEngine::resetCounters()
{
    smvCount = 0;
    gooseCount = 0;
    groupNum = 1;
    logicChannel = 0;
    allLogicChannelsUsed = false;
    std::fill(std::begin(lightGroup), std::end(lightGroup), static_cast<quint8>(1));
    for (OutputGooseEntry &entry : outputGooseMap)
        entry.stream = -1;
}
