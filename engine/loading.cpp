#include "engine/lumtarengine.h"

#include "configuration/walk.h"
#include "protocol/controlcommands.h"
#include "protocol/textcodec.h"
#include "protocol/warningbox.h"

#include <QCoreApplication>

#include <utility>

using namespace testconfiguration;

namespace {

QString atPlace(const Remark &remark)
{
    if (remark.place.line == 0)
        return remark.text;
    return QStringLiteral("line %1, column %2: %3")
        .arg(remark.place.line)
        .arg(remark.place.column)
        .arg(remark.text);
}

} // namespace

/// Sends what the readers make of a configuration.
class LumtarEngine::Loader
{
public:
    /// \param work receives each command
    Loader(LumtarEngine &loading, QByteArray &work)
        : m_engine(loading)
        , m_work(work)
    { }

    void load(const Document &document);
    void publish(const std::optional<SvPublication> &publication);
    void publish(std::optional<GoosePublication> publication);
    void subscribe(const std::optional<GooseSubscription> &subscription);

    [[nodiscard]] SubscriptionNumbers subscriptionNumbers() const
    {
        return {m_engine.groupNum, m_engine.logicChannel, m_engine.logicChannelsUsedUp,
                m_engine.lightGroup};
    }
    [[nodiscard]] int samplesPerSecond() const
    {
        return m_engine.samplesPerCycle * m_engine.nominalFrequency;
    }
    RemarkList remarks{RemarkList::Detail::Loading};

private:
    void tellRemarks(const char *operation);
    void send(const QByteArray &command);

    LumtarEngine &m_engine;
    QByteArray &m_work;
};

void LumtarEngine::Loader::load(const Document &document)
{
    Walk walk(document, {m_engine.smvCount, m_engine.gooseCount, subscriptionNumbers()}, remarks);
    for (OutputGooseEntry &entry : m_engine.outputGooseMap)
        entry.stream = -1;
    m_engine.SendCommand(ResetMsg_Parameter().data());
    for (; !walk.atEnd(); walk.advance()) {
        QCoreApplication::processEvents();
        switch (walk.kind()) {
        case Walk::Kind::SvPublication:
            publish(walk.svPublication(samplesPerSecond()));
            break;
        case Walk::Kind::GoosePublication:
            publish(walk.goosePublication());
            break;
        case Walk::Kind::Subscription:
            subscribe(walk.subscription());
            break;
        case Walk::Kind::Other:
            break;
        }
    }
}

void LumtarEngine::Loader::publish(const std::optional<SvPublication> &publication)
{
    tellRemarks("SetSMV");
    if (!publication)
        return;
    send(publication->download);
    send(publication->description.data());
}

void LumtarEngine::Loader::publish(std::optional<GoosePublication> publication)
{
    tellRemarks("SetGoose");
    if (!publication) { // nothing shall be written into the stream that had the number before
        if (m_engine.gooseCount < limits::kGooseStreams)
            gblGooseDataOffsetAddr[m_engine.gooseCount].SetPara(0);
        return;
    }
    for (int i = 0; i < publication->unsupportedTypes; ++i)
        warnUnsupportedGooseType();
    publication->build(gblGooseDataOffsetAddr[publication->stream]);
    send(publication->download);
    send(publication->description.data());
    for (const OutputBinding &binding : std::as_const(publication->bindings))
        m_engine.outputGooseMap[binding.output - 1] = {qint8(publication->stream),
                                                       quint8(binding.position)};
}

void LumtarEngine::Loader::subscribe(const std::optional<GooseSubscription> &subscription)
{
    tellRemarks("SetBinMap");
    if (subscription)
        send(subscription->command.data());
}

void LumtarEngine::Loader::tellRemarks(const char *operation)
{
    for (const Remark &each : remarks.take())
        m_engine.refuse(QLatin1String(operation) + QStringLiteral(": ") + atPlace(each));
}

void LumtarEngine::Loader::send(const QByteArray &command)
{
    m_work = command;
    m_engine.SendCommand(m_work);
}

int LumtarEngine::InitGPP(char *configPath)
{
    const QString path = textcodec::fromCString(configPath);
    const Document document = Document::read(path);
    if (document.isEmpty())
        refuse(QStringLiteral("InitGPP: %1: %2").arg(path, atPlace(document.error())));
    return LoadConfiguration(document);
}

int LumtarEngine::LoadConfiguration(const Document &document)
{
    if (document.isEmpty())
        return 0;
    QByteArray work;
    Loader(*this, work).load(document);
    return 1;
}

void LumtarEngine::SetSMV(QDomElement &element, QByteArray &work)
{
    const Document document = Document::fromElement(element);
    Loader loader(*this, work);
    loader.publish(
        readSvPublication(Element(document), smvCount, loader.samplesPerSecond(), loader.remarks));
}

void LumtarEngine::SetGoose(QDomElement &element, QByteArray &work)
{
    const Document document = Document::fromElement(element);
    Loader loader(*this, work);
    loader.publish(readGoosePublication(Element(document), gooseCount, loader.remarks));
}

void LumtarEngine::SetBinMap(QDomElement &element, QByteArray &work)
{
    const Document document = Document::fromElement(element);
    Loader loader(*this, work);
    loader.subscribe(
        readSubscription(Element(document), loader.subscriptionNumbers(), loader.remarks));
}
