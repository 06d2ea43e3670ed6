/// \file
/// Loads the test configuration that the command line names, without a board. Exit status 0 if the
/// loader takes it, sends streams and has nothing to remark.

#include "engine/lumtarengine.h"

#include <cstdio>

namespace {

int commands = 0;
int remarks = 0;

void countMessage(QtMsgType, const QMessageLogContext &, const QString &message)
{
    // Without a link every command ends in this message.
    if (message == QLatin1String("SendCommand: refused, the device link is not open")) {
        ++commands;
        return;
    }
    ++remarks;
    std::fprintf(stderr, "%s\n", qPrintable(message));
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc != 2)
        return 2;
    qInstallMessageHandler(countMessage);
    LumtarEngine engine;
    const bool loaded = engine.InitGPP(argv[1]) == 1;
    std::fprintf(stderr, "loaded %d, %d commands, %d remarks\n", loaded, commands, remarks);
    return loaded && commands > 1 && remarks == 0 ? 0 : 1; // the first one only announces a load
}
