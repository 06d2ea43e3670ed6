/// \file
/// Programs for a live board, built of commands as they come over the link.
#pragma once

#include "virtualboard/play/testprogram.h"

#include <QByteArray>
#include <QVector>
#include <QtEndian>

namespace liveprogram {

constexpr int kSvAppId = 0x4000, kGooseAppId = 0x1000; ///< of stream 0; the others follow
constexpr int kDeviceAppId = 0x3000; ///< of the GOOSE stream that is subscribed to, at port 1
constexpr int kChannels = 8; ///< of every SV stream

inline QByteArray be(qint64 value, int size)
{
    QByteArray bytes(8, 0);
    qToBigEndian(value, bytes.data());
    return bytes.right(size);
}

inline QByteArray ber(int tag, const QByteArray &contents)
{
    return be(tag, 1) + be(contents.size(), 1) + contents; // shorter than 128 bytes
}

inline QByteArray ethernet(int type, int appId, const QByteArray &apdu, bool tagged = true)
{
    return QByteArray::fromHex("010ccd040001020000000001") + (tagged ? be(0x81008005, 4) : "")
        + be(type, 2) + be(appId, 2) + be(apdu.size() + 8, 2) + be(0, 4) + apdu;
}

inline QByteArray svFrame(int stream)
{
    const QByteArray asdu = ber(0x80, "MU" + be(0x3030 + stream, 2)) + ber(0x82, be(0, 2))
        + ber(0x83, be(1, 4)) + ber(0x85, be(2, 1)) + ber(0x87, QByteArray(8 * kChannels, 0));
    return ethernet(0x88ba, kSvAppId + stream,
                    ber(0x60, ber(0x80, be(1, 1)) + ber(0xa2, ber(0x30, asdu))));
}

/// \param value of the one entry of the dataset
inline QByteArray gooseFrame(int appId, bool value, int stNum = 1, bool tagged = true)
{
    const QByteArray pdu = ber(0x80, "IED/LLN0$GO$cb") + ber(0x81, be(2000, 2))
        + ber(0x82, "IED/LLN0$ds") + ber(0x83, "ID") + ber(0x84, be(10, 8))
        + ber(0x85, be(stNum, 4)) + ber(0x86, be(0, 4)) + ber(0x87, be(0, 1)) + ber(0x88, be(1, 1))
        + ber(0x89, be(0, 1)) + ber(0x8a, be(1, 1)) + ber(0xab, ber(0x83, be(value, 1)));
    return ethernet(0x88b8, appId, ber(0x61, pdu), tagged);
}

/// Where the run-time fields lie in these frames.
const int smpCntOffset = int(svFrame(0).indexOf(QByteArray("\x82\x02", 2), 30)) + 2;
const int dataOffset = int(svFrame(0).size()) - 8 * kChannels;
const int tOffset = int(gooseFrame(0, false).indexOf(QByteArray("\x84\x08", 2))) + 2;
const int sqNumOffset = tOffset + 16;

inline virtualboard::DecodedCommand decoded(const virtualboard::Command &command)
{
    virtualboard::DecodedCommand result;
    result.command = command;
    return result;
}

/// The stream with number \a stream, whose kind the EtherType tells; at port 1 or, if odd, 2.
inline virtualboard::DecodedCommand download(int stream, const QByteArray &frame)
{
    const int kind = frame.mid(16, 2) == be(0x88b8, 2);
    return virtualboard::decodeCommand(QByteArray::fromHex("8c918c91") + be(kind << 6 | stream, 1)
                                       + be((stream % 2) << 2 | 1, 1) + be(0, 1)
                                       + be(frame.size(), 1) + be(0, 1) + frame);
}

struct Shape
{
    int svStreams = 1;
    int gooseStreams = 1;
    /// The steps follow each other in time; 0: no end. Every channel of step n is a sine of 50 Hz
    /// that begins at its peak of 100 ^ (n + 1) counts.
    QVector<int> milliseconds;
    bool inputsLeave = false; ///< a step is also left on channel 0, or the trigger: to the next
};

/// 4000 samples a second.
inline virtualboard::TestProgram program(const Shape &shape)
{
    using namespace virtualboard;
    QVector<DecodedCommand> commands;
    for (int i = 0; i < shape.svStreams; ++i) {
        commands << download(i, svFrame(i))
                 << decoded(SvDescriptionCommand{i, 0, i, smpCntOffset, 0, 4000, dataOffset,
                                                 QByteArray::fromHex("0001020304050607")});
    }
    for (int i = 0; i < shape.gooseStreams; ++i) {
        commands << download(i, gooseFrame(kGooseAppId + i, false))
                 << decoded(GooseDescriptionCommand{i, sqNumOffset, tOffset});
    }
    float amplitude = 100;
    for (int step = 0; step < shape.milliseconds.size(); ++step, amplitude *= 100) {
        const int leaves = shape.inputsLeave;
        commands << decoded(StepConditionCommand{step, 0, shape.milliseconds[step], step + 1,
                                                 leaves, step + 1, leaves, step + 1});
        for (int channel = 0; channel < kChannels; ++channel)
            commands << decoded(ChannelSignalCommand{step, channel, 1, 0, 50, amplitude, 90, 0.0F});
    }
    commands << decoded(SubscriptionCommand{0, 1, 0, kDeviceAppId, 0, 1, {1}})
             << decoded(StartStopCommand{true, 250, {}});
    TestProgram result;
    QStringList problems;
    for (const DecodedCommand &each : std::as_const(commands))
        problems << result.take(each);
    if (!problems.isEmpty())
        qFatal("%s", qPrintable(problems.join(QLatin1Char('\n'))));
    return result;
}

} // namespace liveprogram
