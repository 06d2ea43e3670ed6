/// \file
/// What an application does with the library, without a board: builds commands, loads a
/// configuration, looks at the results. Its argument is the example of a test configuration.

#include <Protocal.h>
#include <lumtarengine.h>
#include <statusreply.h>
#include <testconfiguration.h>
#include <textcodec.h>

#include <QCoreApplication>

#include <cstdio>

namespace {

bool complete = true;

void expect(bool holds, const char *what)
{
    if (!holds)
        std::fprintf(stderr, "consumer: failed: %s\n", what);
    complete = complete && holds;
}

void checkCommands()
{
    expect(StopCMD().data() == QByteArray::fromHex("8c938c93"), "stop command");
    StopAndStart start;
    start.setTimevalue(100);
    expect(start.data() == QByteArray::fromHex("8c908c900301c805020408"), "start command");
}

void checkEngine(LumtarEngine &engine, char *configuration)
{
    expect(engine.SendCommand(StopCMD().data()) == 0, "no exchange without a link");
    expect(!statusreply::decodeState("LVB") && !statusreply::decodeChanges({})
               && !statusreply::decodeInputs("LVB\x03"),
           "no status");
    expect(textcodec::toCString(QString(QChar(0x4e2d))) == "\xd6\xd0", "GBK for C strings");

    expect(engine.InitGPP(configuration) == 1, "the example loads");
    expect(engine.smvCount == 2 && engine.gooseCount == 2, "two SV and two GOOSE streams");
    const OutputGooseEntry bound = engine.outputGooseMap[0];
    expect(bound.stream >= 0 && bound.position <= gblGooseDataOffsetAddr[bound.stream].Num,
           "binary output 1 drives a dataset entry");

    using testconfiguration::Document;
    const Document read = Document::read(QString::fromLocal8Bit(configuration));
    expect(testconfiguration::check(read, 4000).streams.size() == 6, "the streams of the example");
    expect(engine.LoadConfiguration(read) == 1, "what has been checked can be loaded");
    const auto missing = testconfiguration::check(Document::read(QStringLiteral("none")), 4000);
    expect(!missing.isRead() && missing.remarks.size() == 1, "a remark on a missing file");
    QObject *const object = &engine;
    expect(qobject_cast<LumtarEngine *>(object) != nullptr, "the engine's own meta-object");
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    if (argc != 2) {
        std::fputs("usage: consumer CONFIGURATION\n", stderr);
        return 2;
    }
    checkCommands();
    bool destroyed = false;
    {
        LumtarEngine engine;
        QObject::connect(&engine, &QObject::destroyed, [&destroyed] { destroyed = true; });
        checkEngine(engine, argv[1]);
    }
    expect(destroyed, "a signal named by its address");
    if (complete)
        std::puts("consumer: complete");
    return complete ? 0 : 1;
}
