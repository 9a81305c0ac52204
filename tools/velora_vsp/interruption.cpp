#include "interruption.h"

#include <csignal>
#include <cstdlib>
#include <initializer_list>

#include <unistd.h>

namespace {

volatile std::sig_atomic_t pendingSignal = 0;

// A signal may come just before a call that waits, and wouldn't end it:
// so alarms follow until the process has ended.
void noteSignal(int signal)
{
    if (signal != SIGALRM)
        pendingSignal = signal;
    alarm(1);
}

} // namespace

void catchInterruptions()
{
    struct sigaction note {}; // without SA_RESTART: waiting for a pipe ends
    note.sa_handler = noteSignal;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction before {};
        sigaction(signal, &note, &before);
        if (before.sa_handler == SIG_IGN)
            sigaction(signal, &before, nullptr);
    }
    sigaction(SIGALRM, &note, nullptr);
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
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
