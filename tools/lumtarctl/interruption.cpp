#include "tools/lumtarctl/interruption.h"

#include <csignal>

namespace {

volatile std::sig_atomic_t noted = 0;

/// Also when the terminal or the reader of the output has gone: nobody watches the test any more.
constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

void note(int /*signal*/)
{
    noted = 1;
    for (const int each : kSignals)
        std::signal(each, SIG_DFL);
    std::signal(SIGPIPE, SIG_IGN);
}

} // namespace

void interruption::expect()
{
    for (const int each : kSignals)
        std::signal(each, note);
    std::signal(SIGPIPE, note);
}

bool interruption::hasCome()
{
    return noted != 0;
}
