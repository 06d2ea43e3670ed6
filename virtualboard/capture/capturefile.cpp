#include "virtualboard/capture/capturefile.h"

#include "virtualboard/capture/capturemarks.h"
#include "virtualboard/play/testprogram.h"
#include "virtualboard/wire/analogchannels.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <limits>
#include <vector>

#include <pcap/pcap.h>
#include <sys/stat.h>

namespace virtualboard {

namespace {

constexpr int kSnapLength = 65535;

/// pcap with time stamps in microseconds and in nanoseconds, each in both byte orders; pcapng.
constexpr std::array<const char *, 5> kCaptureMagics = {"a1b2c3d4", "d4c3b2a1", "a1b23c4d",
                                                        "4d3cb2a1", "0a0d0d0a"};

using Pcap = std::unique_ptr<pcap_t, decltype(&pcap_close)>;
using Dumper = std::unique_ptr<pcap_dumper_t, decltype(&pcap_dump_close)>;

/// A pcap file has room for the seconds of 32 bits; what lies outside becomes the nearest time.
pcap_pkthdr headerAt(WallTime time)
{
    constexpr Duration kLatest = std::chrono::seconds(std::numeric_limits<quint32>::max());
    const Duration limited = std::clamp(time.time_since_epoch(), Duration(0), kLatest);
    pcap_pkthdr header = {};
    header.ts.tv_sec = decltype(header.ts.tv_sec)(limited / 1s);
    header.ts.tv_usec = decltype(header.ts.tv_usec)((limited % 1s).count()); // ns in a file of ns
    return header;
}

/// libpcap may take the seconds of a pcap file, 32 bits without a sign, for a signed number. A
/// pcapng file has room for times beyond 64 bits of ns, and no file is held to less than a second
/// in the fraction.
WallTime timeOf(const pcap_pkthdr &header)
{
    constexpr qint64 kLatest = Duration::max() / 1s - 1;
    const qint64 seconds = header.ts.tv_sec < 0 ? quint32(header.ts.tv_sec) : header.ts.tv_sec;
    return WallTime(std::chrono::seconds(std::min(seconds, kLatest))
                    + std::clamp(Duration(header.ts.tv_usec), Duration(0), Duration(1s) - 1ns));
}

QString inFile(const QString &path, const QString &reason)
{
    return path + QLatin1String(": ") + reason;
}

} // namespace

bool isCapture(const QByteArray &begin)
{
    return std::any_of(kCaptureMagics.begin(), kCaptureMagics.end(), [&begin](const char *magic) {
        return begin.startsWith(QByteArray::fromHex(magic));
    });
}

struct CaptureSink::Private
{
    QString path;
    int writeError = 0; ///< errno of the first write that failed
    std::vector<char> buffer; ///< of the dumper's file
    Pcap pcap = {nullptr, pcap_close};
    Dumper dumper = {nullptr, pcap_dump_close};

    qint64 size = 24; ///< the header of the file
    std::vector<QByteArray> streamMarks; ///< still to be written
    std::array<std::array<float, kAnalogChannels>, kStepLimit> scale = {};

    bool canWrite() const { return dumper && writeError == 0; }
    void write(pcap_pkthdr &header, const uchar *bytes, int count)
    {
        constexpr int kRecordHead = 16;
        header.caplen = header.len = bpf_u_int32(count);
        size += kRecordHead + count;
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
    /// Whether it still has its name. It need not be lost when that cannot be found out: the folder
    /// may be closed to whom it was not closed when the file was opened.
    void lookForFile()
    {
        struct stat written = {};
        if (!canWrite() || ::fstat(fileno(pcap_dump_file(dumper.get())), &written) != 0)
            return;
        struct stat named = {};
        const bool isFound = ::stat(QFile::encodeName(path).constData(), &named) == 0;
        const bool isLost = isFound
            ? named.st_ino != written.st_ino || named.st_dev != written.st_dev
            : errno == ENOENT || written.st_nlink == 0;
        if (isLost)
            writeError = ENOENT;
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

Expected<void> CaptureSink::open(const QString &path)
{
    d = std::make_unique<Private>();
    d->path = path;
    if (QFile earlier(path); QFileInfo(path).isFile() && earlier.open(QIODevice::ReadOnly)) {
        const QByteArray begin = earlier.read(4);
        if (!begin.isEmpty() && !isCapture(begin))
            return Refusal(inFile(path,
                                  QStringLiteral("is there already, and no capture; it is not "
                                                 "overwritten")));
    }
    FILE *file = std::fopen(QFile::encodeName(path).constData(), "wb");
    if (!file)
        return Refusal(inFile(path, qt_error_string(errno)));
    d->buffer.resize(1 << 20);
    std::setvbuf(file, d->buffer.data(), _IOFBF, d->buffer.size());
    d->pcap.reset(
        pcap_open_dead_with_tstamp_precision(DLT_EN10MB, kSnapLength, PCAP_TSTAMP_PRECISION_NANO));
    d->dumper.reset(pcap_dump_fopen(d->pcap.get(), file)); // closes the file if it fails
    if (!d->dumper)
        return Refusal(inFile(path, QString::fromLocal8Bit(pcap_geterr(d->pcap.get()))));
    return flush(); // so that it is a capture from now on
}

Expected<void> CaptureSink::flush()
{
    if (d->canWrite() && pcap_dump_flush(d->dumper.get()) != 0)
        d->writeError = errno;
    d->lookForFile();
    if (d->writeError != 0)
        return Refusal(errorString());
    return {};
}

qint64 CaptureSink::size() const
{
    return d->size;
}

QString CaptureSink::errorString() const
{
    return d->writeError == 0 ? QString() : inFile(d->path, qt_error_string(d->writeError));
}

void CaptureSink::begin(const TestProgram &program)
{
    d->streamMarks.clear();
    for (const PlayedSv &stream : program.svStreams()) {
        StreamMark mark{stream.appId, stream.svId, {}};
        for (const char kind : stream.channelKinds)
            mark.channels << channelName(quint8(kind));
        d->streamMarks.push_back(encodeMark(mark));
    }
    d->scale = {};
    for (int number = 0; number < kStepLimit; ++number) {
        if (const std::optional<PlayedStep> step = program.step(number))
            std::transform(step->waves.begin(), step->waves.end(),
                           d->scale[std::size_t(number)].begin(),
                           [](const auto &wave) { return wave.scaleFactor; });
    }
}

void CaptureSink::publish(WallTime time, const OutgoingFrame *frames, int count)
{
    if (!d->canWrite())
        return;
    pcap_pkthdr header = headerAt(time);
    d->writeStreamMarks(header);
    for (int i = 0; i < count; ++i)
        d->write(header, frames[i].bytes, frames[i].size);
    d->notice();
}

void CaptureSink::note(WallTime time, const Transition &transition)
{
    if (!d->canWrite())
        return;
    pcap_pkthdr header = headerAt(time);
    d->writeStreamMarks(header);
    StepMark mark{transition, {}};
    if (transition.entered < kStepLimit)
        mark.scale = d->scale[transition.entered];
    d->write(header, encodeMark(mark));
    d->notice();
}

void CaptureSink::noteInputs(WallTime time, const RecordedInput *inputs, int count)
{
    if (!d->canWrite())
        return;
    pcap_pkthdr header = headerAt(time);
    d->writeStreamMarks(header);
    for (int i = 0; i < count; ++i)
        d->write(header, encodeMark(InputMark{inputs[i]}));
    d->notice();
}

void CaptureSink::end()
{
    (void)flush();
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

Expected<void> CaptureReader::open(const QString &path)
{
    d = std::make_unique<Private>();
    d->path = path;
    FILE *file = std::fopen(QFile::encodeName(path).constData(), "rb");
    if (!file)
        return Refusal(inFile(path, qt_error_string(errno)));
    if (const int first = std::fgetc(file); first == EOF) {
        std::fclose(file);
        return Refusal(inFile(path, QStringLiteral("is empty")));
    } else {
        std::ungetc(first, file);
    }
    std::array<char, PCAP_ERRBUF_SIZE> reason = {};
    d->pcap.reset(
        pcap_fopen_offline_with_tstamp_precision(file, PCAP_TSTAMP_PRECISION_NANO, reason.data()));
    if (!d->pcap) {
        std::fclose(file);
        return Refusal(inFile(path, QString::fromLocal8Bit(reason.data())));
    }
    if (const int type = pcap_datalink(d->pcap.get()); type != DLT_EN10MB) {
        d->pcap.reset();
        const char *name = pcap_datalink_val_to_name(type);
        return Refusal(inFile(path,
                              QStringLiteral("Ethernet frames expected, link type %1 found")
                                  .arg(QLatin1String(name ? name : "without a name"))));
    }
    return {};
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
