#include "virtualboard/board/boardstatus.h"

#include <QtEndian>

#include <algorithm>

namespace virtualboard {

namespace {

const QByteArray signature = QByteArrayLiteral("LVB\x03"); // the last byte is the version

constexpr int kLogHeadSize = 16;
constexpr int kRecordSize = 32;
constexpr int kLargestPayload = 1591; ///< of a data reply that fits a datagram of the link
constexpr int kInputsHeadSize = 20;
constexpr int kInputSize = 16;
static_assert(kInputsHeadSize + InputLog::kPartSize * kInputSize <= kLargestPayload);
static_assert(kLogHeadSize + TransitionLog::kCapacity * kRecordSize <= kLargestPayload);

template <typename Number>
void append(QByteArray &bytes, Number number)
{
    char field[sizeof number];
    qToLittleEndian(number, field);
    bytes.append(field, int(sizeof number));
}

void append(QByteArray &bytes, Duration time)
{
    append(bytes, quint64(time.count()));
}

} // namespace

QByteArray encodeState(const PlayStatus &status, quint32 problems, quint32 start)
{
    QByteArray payload = signature;
    append(payload, quint8(status.state));
    append(payload, status.step);
    append(payload, quint16(0));
    append(payload, status.timeInStep);
    append(payload, status.totalTime);
    append(payload, status.framesSent);
    for (const quint64 word : status.activeChannels)
        append(payload, word);
    append(payload, problems);
    append(payload, start);
    append(payload, status.punctuality.latenessP50);
    append(payload, status.punctuality.latenessP99);
    append(payload, status.punctuality.latenessMax);
    append(payload, status.punctuality.missedDeadlines);
    append(payload, status.punctuality.sendFailures);
    return payload;
}

QByteArray encodeLog(const TransitionLog &log)
{
    const QVector<Transition> last =
        log.last.mid(std::max(0, int(log.last.size()) - TransitionLog::kCapacity));
    QByteArray payload = signature;
    append(payload, log.total);
    append(payload, quint16(last.size()));
    append(payload, quint16(kRecordSize));
    append(payload, log.start);
    for (const Transition &each : last) {
        append(payload, each.left);
        append(payload, each.entered);
        append(payload, quint8(each.cause));
        append(payload, each.disturbances);
        append(payload, each.cause == Cause::BinaryInput ? each.channel : kNoChannel);
        append(payload, quint16(0));
        append(payload, each.lateness);
        append(payload, each.causeTime);
        append(payload, each.entryTime);
    }
    return payload;
}

QByteArray encodeInputs(const InputLog &log)
{
    QByteArray payload = signature;
    append(payload, log.total);
    append(payload, quint16(log.part.size()));
    append(payload, quint16(kInputSize));
    append(payload, log.start);
    append(payload, quint16(log.first));
    append(payload, quint16(0));
    for (const RecordedInput &each : log.part) {
        append(payload, quint8(each.kind));
        append(payload, quint8(0));
        append(payload, each.kind == InputKind::Trigger ? kNoChannel : each.channel);
        append(payload, quint32(0));
        append(payload, each.time);
    }
    return payload;
}

QByteArray encodeNothing()
{
    return signature;
}

QString punctualityText(const Punctuality &punctuality)
{
    const auto microseconds = [](Duration time) {
        return QString::number(double(time.count()) / 1e3, 'f', 1);
    };
    return QStringLiteral("sample instants late by %1 us (p50), %2 us (p99), %3 us (most); %4 "
                          "missed deadlines, %5 frames not sent")
        .arg(microseconds(punctuality.latenessP50), microseconds(punctuality.latenessP99),
             microseconds(punctuality.latenessMax), QString::number(punctuality.missedDeadlines),
             QString::number(punctuality.sendFailures));
}

} // namespace virtualboard
