#include "testconfiguration.h"

#include "lumtarengine.h"
#include "textcodec.h"

#include <QCoreApplication>
#include <QDebug>

#include <algorithm>
#include <iterator>

using namespace testconfiguration;

namespace {

/// Writes one debug line per remark.
void report(const char *operation, const Remarks &remarks)
{
    for (const Remark &remark : remarks) {
        qDebug().noquote().nospace() << operation << ": line " << remark.line << ", column "
                                     << remark.column << ": " << remark.text;
    }
}

} // namespace

int LumtarEngine::InitGPP(char *configPath)
{
    Remarks remarks;
    const QDomDocument document = readDocument(textcodec::fromCString(configPath), remarks);
    report("InitGPP", remarks);
    const QDomElement root = document.documentElement();
    if (root.isNull())
        return 0;

    QDomElement child = root.firstChildElement();
    resetCounters();
    SendCommand(QByteArrayLiteral("\x8c\x90\x8c\x90\x02"));
    QByteArray work;
    for (; !child.isNull(); child = child.nextSiblingElement()) {
        QCoreApplication::processEvents();
        // A stream beyond a limit is refused below and takes no number.
        switch (kindOf(child)) {
        case Kind::GoosePublication:
            SetGoose(child, work);
            gooseCount = static_cast<quint8>(qMin(gooseCount + 1, kMaxGooseStreams));
            break;
        case Kind::SvPublication:
            SetSMV(child, work);
            smvCount = static_cast<quint8>(qMin(smvCount + 1, kMaxSvStreams));
            break;
        case Kind::Subscription:
            SetBinMap(child, work);
            break;
        case Kind::Other:
            break;
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
    logicChannelsUsedUp = false;
    std::fill(std::begin(lightGroup), std::end(lightGroup), static_cast<quint8>(1));
    for (OutputGooseEntry &entry : outputGooseMap)
        entry.stream = -1;
}

void LumtarEngine::SetSMV(QDomElement &element, QByteArray &work)
{
    Remarks remarks;
    const auto publication =
        readSvPublication(element, smvCount, samplesPerCycle * nominalFrequency, remarks);
    report("SetSMV", remarks);
    if (!publication)
        return;
    work = publication->download;
    SendCommand(work);
    work = publication->description.data();
    SendCommand(work);
}

void LumtarEngine::SetGoose(QDomElement &element, QByteArray &work)
{
    Remarks remarks;
    GooseDataOffsetAddr none;
    GooseDataOffsetAddr &record =
        gooseCount < kMaxGooseStreams ? gblGooseDataOffsetAddr[gooseCount] : none;
    const auto publication = readGoosePublication(element, gooseCount, record, remarks);
    report("SetGoose", remarks);
    if (!publication)
        return;
    work = publication->download;
    SendCommand(work);
    work = publication->description.data();
    SendCommand(work);
    for (const OutputBinding &binding : publication->bindings) {
        outputGooseMap[binding.output - 1] = {static_cast<qint8>(gooseCount),
                                              static_cast<quint8>(binding.position)};
    }
}

void LumtarEngine::SetBinMap(QDomElement &element, QByteArray &work)
{
    Remarks remarks;
    const auto subscription = readSubscription(
        element, {groupNum, logicChannel, logicChannelsUsedUp, lightGroup}, remarks);
    report("SetBinMap", remarks);
    if (!subscription)
        return;
    work = subscription->command.data();
    SendCommand(work);
}
