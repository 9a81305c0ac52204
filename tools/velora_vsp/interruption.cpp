#include "interruption.h"

#include <csignal>
#include <cstdlib>
#include <initializer_list>

namespace {

volatile std::sig_atomic_t pendingSignal = 0;

void noteSignal(int signal)
{
    pendingSignal = signal;
}

} // namespace

void catchInterruptions()
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        if (std::signal(signal, noteSignal) == SIG_IGN)
            std::signal(signal, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

void throwIfInterrupted()
{
    if (pendingSignal != 0)
        throw Interrupted();
}

void dieOfInterruption()
{
    std::signal(pendingSignal, SIG_DFL);
    std::raise(pendingSignal);
    std::abort();
}
