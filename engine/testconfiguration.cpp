#include "lumtarengine.h"

#include "configurationreading.h"
#include "textcodec.h"

#include <QCoreApplication>

#include <algorithm>
#include <iterator>

using namespace testconfiguration;

int LumtarEngine::InitGPP(char *configPath)
{
    const QString path = textcodec::fromCString(configPath);
    Remarks remarks;
    const QDomDocument document = readDocument(path, remarks);
    report(QStringLiteral("InitGPP: ") + path, remarks);
    const QDomElement root = document.documentElement();
    if (root.isNull())
        return 0;

    QDomElement child = root.firstChildElement();
    resetCounters();
    SendCommand(QByteArrayLiteral("\x8c\x90\x8c\x90\x02"));
    QByteArray work;
    for (; !child.isNull(); child = child.nextSiblingElement()) {
        QCoreApplication::processEvents();
        // A stream beyond the limit is refused by SetGoose or SetSMV and takes no number.
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

void LumtarEngine::sendStream(const QByteArray &download, const QByteArray &description,
                              QByteArray &work)
{
    for (const QByteArray &command : {download, description}) {
        work = command;
        SendCommand(work);
    }
}
