#pragma once

#include "virtualboard/play/playback.h"
#include "virtualboard/wire/expected.h"

#include <QByteArray>
#include <QString>

#include <memory>
#include <optional>

namespace virtualboard {

/// Whether a file that begins with these four bytes is a pcap or pcapng file.
[[nodiscard]] bool isCapture(const QByteArray &begin);

/// Writes what is published, and the marks of the sequence, into a pcap file with Ethernet frames
/// and time stamps in nanoseconds: those of 1970-01-01 to 2106-02-07; earlier and later times
/// become the first and the last of them.
///
/// publish() allocates nothing once the sequence has begun; it waits for the disk at times, and
/// the notes allocate, so that this is no sink for a live sample loop.
class CaptureSink : public FrameSink
{
public:
    CaptureSink();
    ~CaptureSink() override; ///< closes the file

    /// Creates the file, with its header, over an earlier capture. Refuses to overwrite a file that
    /// is none, unless it is empty.
    [[nodiscard]] Expected<void> open(const QString &path);
    /// Writes what is buffered, and looks whether the file still has its name.
    Expected<void> flush();
    qint64 size() const; ///< bytes, those that are still buffered included
    /// Why a write failed, upon which nothing more is written; empty if none did.
    QString errorString() const;

    void begin(const TestProgram &program) override;
    void publish(WallTime time, const OutgoingFrame *frames, int count) override;
    void note(WallTime time, const Transition &transition) override;
    void noteInputs(WallTime time, const RecordedInput *inputs, int count) override;
    void end() override; ///< flushes

private:
    struct Private;
    std::unique_ptr<Private> d;
};

/// One packet of a capture.
struct CapturedFrame
{
    WallTime time; ///< not before 1970
    QByteArray bytes; ///< from the destination MAC address on
    bool whole = true; ///< not cut by the capture's snap length
};

/// Reads a pcap or pcapng file with Ethernet frames, packet by packet.
class CaptureReader
{
public:
    CaptureReader();
    ~CaptureReader();

    /// Fails if there is no such file, it is empty or no capture, or its frames are no Ethernet
    /// frames.
    [[nodiscard]] Expected<void> open(const QString &path);
    /// The next packet; nothing at the end, and after an error. An absurd time becomes the nearest
    /// that can be held.
    std::optional<CapturedFrame> next();
    /// Why next() ended before the end: names the packet, counted from 1. Empty if it did not.
    QString errorString() const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace virtualboard
