#include "protocol/textcodec.h"

#include <QTextCodec>

#include <atomic>

namespace textcodec {

namespace {

std::atomic<QTextCodec *> cStringCodec{nullptr};
std::atomic<QTextCodec *> trCodec{nullptr};

} // namespace

void setCodecForCStrings(QTextCodec *codec)
{
    cStringCodec = codec;
}

void setCodecForTr(QTextCodec *codec)
{
    trCodec = codec;
}

void installDefaultCodecs()
{
    QTextCodec *const gbk = QTextCodec::codecForName("GBK");
    setCodecForTr(gbk);
    setCodecForCStrings(gbk);
}

QString fromCString(const char *bytes)
{
    const QTextCodec *codec = cStringCodec;
    return codec ? codec->toUnicode(bytes) : QString::fromLatin1(bytes);
}

QByteArray toCString(const QString &text)
{
    const QTextCodec *codec = cStringCodec;
    return codec ? codec->fromUnicode(text) : text.toLatin1();
}

QString fromTr(const char *bytes)
{
    const QTextCodec *codec = trCodec;
    if (!codec)
        codec = QTextCodec::codecForName("GBK");
    return codec ? codec->toUnicode(bytes) : QString::fromLatin1(bytes);
}

} // namespace textcodec
