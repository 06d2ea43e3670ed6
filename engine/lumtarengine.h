/// \file
/// The engine of the test set: the state of one test, and the operations that make the
/// signal-generation board carry it out.
#pragma once

#include "gooseoffsets.h"
#include "lumtar_export.h"

#include <QByteArray>
#include <QDomElement>
#include <QHostAddress>
#include <QObject>
#include <QUdpSocket>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>

namespace envelope {
enum class Answer;
}
namespace testconfiguration {
class Document;
}

/// Setting of one analog output in one step.
struct LUMTAR_EXPORT OutChannelPara_tag
{
    quint8 ampIsPeak = 0; ///< 0: amplitude is RMS and sent times 1.41421; else sent as it is
    float scaleFactor = 0.01F; ///< volts or amperes per count of the sampled-value stream
    float frequency = 50.0F; ///< Hz
    float amplitude = 0.0F; ///< volts or amperes
    float phasePosition = 0.0F; ///< degrees
    quint8 isCurrent = 0; ///< 1 current output, 0 voltage output
    float phaseJump = 0.0F; ///< degrees, applied when the step is entered
};

/// One step (state) of the sequence.
struct LUMTAR_EXPORT CStep
{
    /// Voltage entries at 0.01 V, current entries at 0.001 A per count, 50 Hz, amplitude 0, every
    /// binary output off, everything else 0.
    CStep();

    /// Entries 0 to 7: Va1, Va2, Vb1, Vb2, Vc1, Vc2, Vn1, Vn2; 8 to 15: Ia1, Ia2, Ib1, Ib2, Ic1,
    /// Ic2, In1, In2. On the wire the currents are channels 0 to 7 and the voltages 8 to 15.
    OutChannelPara_tag outPara[16];
    /// Transition conditions. Bit 3 (8): a binary input ends the step. The others are passed on;
    /// the software board needs none of them, neither for the time nor for a trigger.
    quint8 ctlCondition = 0;
    /// Whole seconds; 0: the time never runs out. Sent as 16 bits of milliseconds, so it wraps at
    /// 65.536 s: 70 s last 4.464 s.
    quint32 stateTime = 0;

    // A jump to a step that does not exist ends the sequence: 255 is one. A step from stepCount on
    // may still be there, of an earlier sequence.
    quint8 stateTimeJump = 0; ///< step to go to when the time runs out; 255: the end
    quint8 stateTrige = 0; ///< trigger setting; 0: no trigger ends the step
    quint8 stateTrigeJump = 0; ///< step to go to on the trigger; 255: the end
    quint8 binInpJump = 0; ///< step to go to on the binary input; 255: the end
    quint8 stepOption = 0; ///< 0: the step option command carries 1, else 0; means nothing
                           ///< to the software board
    quint8 binOut[4] = {}; ///< binary outputs 1 to 4: 0 off, else on
    quint8 phaseAnchor = 0; ///< phase that ReSetPhase() keeps: 3 phase C, 4 phase B, else phase A
};

/// The times of a sequence, finer than its steps can say them.
struct LUMTAR_EXPORT SequenceTimes
{
    quint16 milliseconds[5] = {}; ///< duration of each step, for CStep::stateTime; 0: without end
    quint8 sampleInterval = 250; ///< microseconds, 1 to 255
};

/// The dataset entry of a published GOOSE stream that carries a binary output's state.
struct OutputGooseEntry
{
    qint8 stream = -1; ///< GOOSE publication stream 0 to 3; -1: the output drives no GOOSE value
    quint8 position = 0; ///< dataset position, counted from 1
};

/// Offset records of the published GOOSE streams 0 to 5, shared by all engines of the process.
/// Loading fills them; the state sequence reads records 0 to 3.
extern LUMTAR_EXPORT GooseDataOffsetAddr gblGooseDataOffsetAddr[6];

/// What an application may want to know of the exchanges of an engine; each may be left empty.
///
/// The functions are called on the thread of the exchange, while the engine waits: they may call
/// LumtarEngine::Cancel(), and no other operation of the engine.
struct LUMTAR_EXPORT EngineObserver
{
    /// How an exchange has ended.
    struct Exchange
    {
        QByteArray command; ///< the command frame
        bool succeeded; ///< the board acknowledged, and sent the data reply that was waited for
        int tries; ///< datagrams sent for it, 0 to 3
        std::chrono::nanoseconds time; ///< from the first of them to the end
    };

    /// A datagram with \a command is about to be sent, for the \a attempt th time, from 1.
    std::function<void(const QByteArray &command, int attempt)> sending;
    /// An exchange has ended: called once for each SendCommand(), also for one that was refused.
    std::function<void(const Exchange &exchange)> ended;
    /// An operation has refused or skipped something; \a text is what it wrote to the debug
    /// channel.
    std::function<void(const QString &text)> refused;
};

/// Drives the board: opens the device link, loads a test configuration, executes a state sequence,
/// reads status, stops.
///
/// The application writes the public members directly. Every operation runs on the caller's thread
/// and blocks while it waits for the board: an exchange without an answer takes 4.5 s, one that
/// also waits for a data reply up to 9 s. One exchange at a time per engine. Exchanges return 1 for
/// success and 0 for failure. An operation that refuses its input says so on the debug channel.
class LUMTAR_EXPORT LumtarEngine : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY(LumtarEngine)

public:
    /// Gives the steps and settings their defaults and installs the GBK codec process-wide for C
    /// strings and translated texts (see textcodec.h), where it stays.
    LumtarEngine();
    /// Closes the link.
    ~LumtarEngine() override;

    /// \name Device link
    /// @{

    /// Opens the link to the board at \a peer, closing an open one first. Binds UDP port \a port,
    /// or else \a port + 1, of \a peer's address family. Returns 1; 0 when both are taken, which
    /// leaves the link closed, or when \a port is outside 1 to 65535 or \a peer is null, which
    /// changes nothing.
    int SetUdpConnect(int port, const QHostAddress &peer);
    /// Sends \a frame to the board, at most three times, until it acknowledges; when
    /// expectDataReply is set, waits for a data reply too, whose payload is then in rxBuffer.
    /// Clears expectDataReply. Returns 1 or 0, also in lastResult; 0 at once without an open link
    /// and for a frame above 1588 bytes.
    int SendCommand(const QByteArray &frame);
    /// Waits up to 1500 ms for one datagram and receives it into rxBuffer. Returns 1 when it holds
    /// an acknowledgement (\a mode 0) or a whole data reply (\a mode 1), else 0.
    int recv2001(int mode);

    /// Sets who is told of every exchange from now on; an empty observer ends that. Not during an
    /// operation of the engine.
    void SetObserver(const EngineObserver &newObserver);
    /// Makes the exchange that is going on, and all later ones, fail as soon as possible without
    /// sending anything more, until Resume(): an operation that is running ends with its usual
    /// result, after a few milliseconds. May be called from any thread.
    void Cancel();
    /// Lets exchanges happen again. May be called from any thread.
    void Resume();

    /// Whether exchanges are strict from now on; to begin with they are not. Not during an
    /// operation of the engine.
    ///
    /// Otherwise every datagram counts as the board's answer, and the engine sends to whoever sent
    /// it. A strict exchange throws away what is queued before its first try. Only datagrams from
    /// port 2001 of the board count; what comes from elsewhere, and what is no answer, costs
    /// neither a try nor time. peerAddress and localPort stay. As answers say not to which command
    /// they belong, each is taken for the oldest datagram of the last 1.5 s that has none, be it of
    /// a cancelled exchange; a data reply counts after its acknowledgement only. What is sent is
    /// the same. What no exchange on this link can tell: an acknowledgement that comes for the
    /// second time, more than 2 ms after the first, or later than a try waits, is taken for that
    /// of a command sent meanwhile.
    void SetStrictExchange(bool strict);

    /// @}
    /// \name Test configuration
    /// @{

    /// Loads a test configuration and sends its streams to the board. \a configPath is in the codec
    /// for C strings. Returns 1; 0 when the file cannot be read, is no well-formed XML, expands or
    /// nests without bound, is very large, or its root is not `ied`: then nothing is sent and no
    /// counter changes. The result does not say whether the board accepted the commands; an
    /// EngineObserver does. Events of the application are processed once per child of the root.
    int InitGPP(char *configPath);
    /// Loads a document that has been read already, as InitGPP() does: for a program that checks it
    /// first (testconfiguration.h). Returns 1; 0 for an empty document, sending nothing.
    int LoadConfiguration(const testconfiguration::Document &document);
    /// Publishes one sampled-value stream, number smvCount: frame template, then stream
    /// description. \a work receives each command. Refused, sending nothing: chNums outside 0 to
    /// 255, a 65th stream.
    void SetSMV(QDomElement &element, QByteArray &work);
    /// Publishes one GOOSE stream, number gooseCount: frame template, then stream description;
    /// binds its binary outputs. \a work receives each command. Refused, sending nothing: datCount
    /// outside 0 to 65535, a seventh stream.
    void SetGoose(QDomElement &element, QByteArray &work);
    /// Subscribes to one GOOSE stream of the device under test and maps its entries onto logic
    /// binary inputs. \a work receives the command. Refused, sending nothing: portIndex outside 1
    /// to 5, datCount outside 0 to 65535, a 32nd light group on a port; dropped: no entry to map.
    void SetBinMap(QDomElement &element, QByteArray &work);

    /// @}
    /// \name Analog outputs, all five steps unless a step is named
    /// @{

    /// Sets the units of the sampled values. 0: 0.01 V and 0.001 A per count; 1: 1 V and 1 A per
    /// count; others change nothing else. The low byte of \a protocolNumber counts and is stored.
    void SetProtocal(int protocolNumber);
    /// Sets how amplitudes are scaled before they are sent. \a way 0: voltages times \a
    /// voltageFactor times 10, currents times \a currentFactor; else unscaled. Without
    /// this call everything is multiplied by ratios of 0, and so sent as 0, of which ExecSeq()
    /// tells in a debug line.
    void SetVIInputWay(int way, int voltageFactor, int currentFactor);
    /// Copies the first output of every phase to the second, once: what is written to the first
    /// afterwards is not mirrored.
    void SetDoubleAD();
    /// Makes step \a step a balanced three-phase set that runs into step \a nextStep with the
    /// anchor phase unbroken, and sets the phase jumps of \a nextStep, in degrees. Steps outside 0
    /// to 4 change nothing.
    void ReSetPhase(int step, int nextStep);
    /// Clears amplitude and phase jump of Va1 and Ia1 of step 0, Vb1 and Ib1 of step 2, Vc1 and Ic1
    /// of step 4, then mirrors the first outputs.
    void InitSignal();
    /// Clears all amplitudes and binary outputs of \a step. A step outside 0 to 4 changes nothing.
    void OffSignal(int step);

    /// @}
    /// \name State sequence
    /// @{

    /// Sends the first stepCount steps and starts them. Returns 1 whatever the single exchanges
    /// gave, of which an EngineObserver knows; 0, sending nothing, for a stepCount outside 1 to 5
    /// or samplesPerCycle 0.
    int ExecSeq();
    /// As ExecSeq(), with \a times where that has the whole seconds of the steps and the interval
    /// of samplesPerCycle samples at 50 Hz; where both say the same, the commands are the same.
    /// Returns 1; 0, sending nothing, for a stepCount outside 1 to 5 or a sampleInterval of 0.
    int ExecSeqTimed(const SequenceTimes &times);
    /// Sends the setting of one analog output, wire channel \a channel, in step \a step; returns
    /// the command.
    QByteArray sendcmd01(OutChannelPara_tag &para, int step, int channel);
    /// Sends, per published GOOSE stream, the values that the binary outputs take in \a step. A
    /// step outside 0 to 4 sends nothing.
    void sendcmd09(int step);
    /// Reads status \a which (its low byte) of the board. On success copies the reply's payload, up
    /// to 1591 bytes, to \a out unless that is null. Returns 1 or 0.
    int CheckSeqExec(int which, unsigned char *out);
    /// Stops the board, and so also a test that runs when it is called as a probe. Returns 1 or 0.
    int StopExec();
    /// Does nothing.
    void SeqIsFinished(char *unused);

    /// @}

    CStep steps[5]; ///< the state sequence
    qint32 stepCount = 5; ///< steps that ExecSeq() sends, 1 to 5
    QUdpSocket *udpSocket = nullptr; ///< owned; null while the link is closed
    QHostAddress *peerAddress = nullptr; ///< owned; the board; becomes the last sender, to whom is
                                         ///< sent from then on, unless exchanges are strict
    quint8 expectDataReply = 0; ///< the next SendCommand() waits for a data reply
    char rxBuffer[1600] = {}; ///< the last datagram received
    quint16 replyLength = 0; ///< bytes of payload of the last data reply
    quint16 replyOffset = 0; ///< where in rxBuffer that payload begins
    quint16 localPort = 0; ///< given to SetUdpConnect(); becomes the last sender's port, unless
                           ///< exchanges are strict
    quint8 smvCount = 0; ///< SV publication streams loaded so far
    quint8 gooseCount = 0; ///< GOOSE publication streams loaded so far
    quint8 groupNum = 0; ///< group number of the next subscription
    quint8 logicChannel = 0; ///< next free logic binary-input channel
    quint8 lightGroup[5] = {}; ///< next light group of light ports 1 to 5
    quint16 samplesPerCycle = 80; ///< sampled-value samples per power cycle
    quint8 nominalFrequency = 50; ///< Hz
    quint8 protocol = 0; ///< set by SetProtocal()
    qint32 voltageRatio = 0; ///< set by SetVIInputWay()
    qint32 currentRatio = 0; ///< set by SetVIInputWay()
    qint32 viInputWay = 0; ///< set by SetVIInputWay(); 0: the ratios scale the amplitudes
    quint8 lastResult = 0; ///< result of the last SendCommand(), so of the last command only
    qint32 startParam7 = 5; ///< byte 7 of the start command
    qint32 startParam8 = 2; ///< byte 8 of the start command; bytes 9 and 10 are its multiples
    OutputGooseEntry outputGooseMap[4]; ///< what carries binary outputs 1 to 4

private Q_SLOTS:
    /// Wraps \a frame into one datagram and sends it to port 2001 of the board. Does nothing
    /// without an open link or for a frame above 1588 bytes.
    void CommWith2001(QByteArray frame);

private:
    class Loader;
    class AnswersDue;

    void closeLink();
    bool waitForDatagram(int milliseconds);
    int exchange(const QByteArray &frame, bool wantsData);
    bool tryOnce(const QByteArray &frame, bool wantsData);
    bool takeDataReply(int size);
    void throwAwayQueued();
    int receiveFromBoard();
    int awaitAnswer(envelope::Answer expected);
    void refuse(const QString &text) const;
    [[nodiscard]] float amplitudeSent(const OutChannelPara_tag &para) const;
    void tellSilenced(const char *operation) const;
    void sendSequence(const SequenceTimes &times);
    void sendStepCommands(int step, quint16 milliseconds);

    // What is added goes behind the pointer: applications allot the engine, so its size must stay.
    bool logicChannelsUsedUp = false; ///< logicChannel has wrapped from 255 to 0
    std::atomic<bool> cancelled{false};
    EngineObserver observer;
    std::unique_ptr<AnswersDue> answersDue; ///< only where exchanges are strict
};
