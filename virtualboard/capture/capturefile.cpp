#include "capturefile.h"

#include "capturemarks.h"
#include "testprogram.h"

#include <QFile>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <limits>
#include <vector>

#include <pcap/pcap.h>

namespace virtualboard {

namespace {

constexpr qint64 nsPerSecond = 1000000000;
constexpr int snapLength = 65535;

using Pcap = std::unique_ptr<pcap_t, decltype(&pcap_close)>;
using Dumper = std::unique_ptr<pcap_dumper_t, decltype(&pcap_dump_close)>;

/// A pcap file has room for the seconds of 32 bits; what lies outside becomes the nearest time.
pcap_pkthdr headerAt(qint64 time)
{
    constexpr qint64 latest = qint64(std::numeric_limits<quint32>::max()) * nsPerSecond;
    const qint64 limited = std::clamp(time, qint64(0), latest);
    pcap_pkthdr header = {};
    header.ts.tv_sec = decltype(header.ts.tv_sec)(limited / nsPerSecond);
    header.ts.tv_usec = decltype(header.ts.tv_usec)(limited % nsPerSecond); // ns in a file of ns
    return header;
}

/// libpcap may take the seconds of a pcap file, 32 bits without a sign, for a signed number. A
/// pcapng file has room for times beyond 64 bits of ns, and no file is held to less than a second
/// in the fraction.
qint64 timeOf(const pcap_pkthdr &header)
{
    constexpr qint64 latest = std::numeric_limits<qint64>::max() / nsPerSecond - 1;
    const qint64 seconds = header.ts.tv_sec < 0 ? quint32(header.ts.tv_sec) : header.ts.tv_sec;
    return std::min(seconds, latest) * nsPerSecond
        + std::clamp(qint64(header.ts.tv_usec), qint64(0), nsPerSecond - 1);
}

QString inFile(const QString &path, const QString &reason)
{
    return path + QLatin1String(": ") + reason;
}

} // namespace

struct CaptureSink::Private
{
    QString path;
    QString openError;
    int writeError = 0; ///< errno of the first write that failed
    std::vector<char> buffer; ///< of the dumper's file
    Pcap pcap = {nullptr, pcap_close};
    Dumper dumper = {nullptr, pcap_dump_close};

    std::vector<QByteArray> streamMarks; ///< still to be written
    std::array<std::array<float, analogChannels>, stepLimit> scale = {};

    bool canWrite() const { return dumper && writeError == 0; }
    void write(pcap_pkthdr &header, const uchar *bytes, int size)
    {
        header.caplen = header.len = bpf_u_int32(size);
        pcap_dump(reinterpret_cast<u_char *>(dumper.get()), &header, bytes);
    }
    void write(pcap_pkthdr &header, const QByteArray &frame)
    {
        write(header, reinterpret_cast<const uchar *>(frame.constData()), int(frame.size()));
    }
    void writeStreamMarks(pcap_pkthdr &header)
    {
        for (const QByteArray &mark : streamMarks)
            write(header, mark);
        streamMarks.clear();
    }
    void notice()
    {
        if (std::ferror(pcap_dump_file(dumper.get())) != 0)
            writeError = errno;
    }
};

CaptureSink::CaptureSink()
    : d(std::make_unique<Private>())
{ }

CaptureSink::~CaptureSink() = default;

bool CaptureSink::open(const QString &path)
{
    d = std::make_unique<Private>();
    d->path = path;
    FILE *file = std::fopen(QFile::encodeName(path).constData(), "wb");
    if (!file) {
        d->openError = inFile(path, qt_error_string(errno));
        return false;
    }
    d->buffer.resize(1 << 20);
    std::setvbuf(file, d->buffer.data(), _IOFBF, d->buffer.size());
    d->pcap.reset(
        pcap_open_dead_with_tstamp_precision(DLT_EN10MB, snapLength, PCAP_TSTAMP_PRECISION_NANO));
    d->dumper.reset(pcap_dump_fopen(d->pcap.get(), file)); // closes the file if it fails
    if (!d->dumper)
        d->openError = inFile(path, QString::fromLocal8Bit(pcap_geterr(d->pcap.get())));
    return d->dumper != nullptr;
}

bool CaptureSink::flush()
{
    if (d->canWrite() && pcap_dump_flush(d->dumper.get()) != 0)
        d->writeError = errno;
    return errorString().isEmpty();
}

QString CaptureSink::errorString() const
{
    return d->writeError == 0 ? d->openError : inFile(d->path, qt_error_string(d->writeError));
}

void CaptureSink::begin(const TestProgram &program)
{
    d->streamMarks.clear();
    for (const SvStream &stream : program.svStreams()) {
        StreamMark mark{stream.appId, stream.svId, {}};
        for (const char kind : stream.channelKinds)
            mark.channels << channelName(quint8(kind));
        d->streamMarks.push_back(encodeMark(mark));
    }
    d->scale = {};
    for (int number = 0; number < stepLimit; ++number) {
        if (const Step *step = program.step(number))
            std::transform(step->waves.begin(), step->waves.end(),
                           d->scale[std::size_t(number)].begin(),
                           [](const auto &wave) { return wave.scaleFactor; });
    }
}

void CaptureSink::publish(qint64 time, const OutgoingFrame *frames, int count)
{
    if (!d->canWrite())
        return;
    pcap_pkthdr header = headerAt(time);
    d->writeStreamMarks(header);
    for (int i = 0; i < count; ++i)
        d->write(header, frames[i].bytes, frames[i].size);
    d->notice();
}

void CaptureSink::note(qint64 time, const Transition &transition)
{
    if (!d->canWrite())
        return;
    pcap_pkthdr header = headerAt(time);
    d->writeStreamMarks(header);
    StepMark mark{transition, {}};
    if (transition.entered < stepLimit)
        mark.scale = d->scale[transition.entered];
    d->write(header, encodeMark(mark));
    d->notice();
}

void CaptureSink::end()
{
    flush();
}

struct CaptureReader::Private
{
    QString path;
    QString error;
    qint64 packets = 0;
    Pcap pcap = {nullptr, pcap_close};
};

CaptureReader::CaptureReader()
    : d(std::make_unique<Private>())
{ }

CaptureReader::~CaptureReader() = default;

bool CaptureReader::open(const QString &path)
{
    d = std::make_unique<Private>();
    d->path = path;
    FILE *file = std::fopen(QFile::encodeName(path).constData(), "rb");
    if (!file) {
        d->error = inFile(path, qt_error_string(errno));
        return false;
    }
    std::array<char, PCAP_ERRBUF_SIZE> reason = {};
    d->pcap.reset(
        pcap_fopen_offline_with_tstamp_precision(file, PCAP_TSTAMP_PRECISION_NANO, reason.data()));
    if (!d->pcap) {
        std::fclose(file);
        d->error = inFile(path, QString::fromLocal8Bit(reason.data()));
    } else if (pcap_datalink(d->pcap.get()) != DLT_EN10MB) {
        const char *name = pcap_datalink_val_to_name(pcap_datalink(d->pcap.get()));
        d->error = inFile(path,
                          QStringLiteral("Ethernet frames expected, link type %1 found")
                              .arg(QLatin1String(name ? name : "without a name")));
        d->pcap.reset();
    }
    return d->pcap != nullptr;
}

std::optional<CapturedFrame> CaptureReader::next()
{
    pcap_pkthdr *header = nullptr;
    const u_char *bytes = nullptr;
    const int result = d->pcap ? pcap_next_ex(d->pcap.get(), &header, &bytes) : 0;
    if (result == PCAP_ERROR)
        d->error = inFile(d->path,
                          QStringLiteral("packet %1: %2")
                              .arg(d->packets + 1)
                              .arg(QString::fromLocal8Bit(pcap_geterr(d->pcap.get()))));
    if (result != 1) {
        d->pcap.reset();
        return std::nullopt;
    }
    ++d->packets;
    CapturedFrame frame;
    frame.time = timeOf(*header);
    frame.bytes = QByteArray(reinterpret_cast<const char *>(bytes), int(header->caplen));
    frame.whole = header->caplen >= header->len;
    return frame;
}

QString CaptureReader::errorString() const
{
    return d->error;
}

} // namespace virtualboard
