#include "interruption.h"

#include <csignal>
#include <initializer_list>

namespace {

volatile std::sig_atomic_t noted = 0;

void note(int /*signal*/)
{
    noted = 1;
    for (const int each : {SIGINT, SIGTERM})
        std::signal(each, SIG_DFL);
}

} // namespace

void interruption::expect()
{
    for (const int each : {SIGINT, SIGTERM})
        std::signal(each, note);
}

bool interruption::hasCome()
{
    return noted != 0;
}
