#include "interruption.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <initializer_list>

namespace {

std::atomic<int> pendingSignal = 0;
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler may write it");

thread_local const std::atomic<bool>* stopsThread = nullptr;

void noteSignal(int signal)
{
    pendingSignal = signal;
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
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
}

void throwIfInterrupted()
{
    if (pendingSignal != 0 || (stopsThread != nullptr && *stopsThread))
        throw Interrupted();
}

StopsWith::StopsWith(const std::atomic<bool>& stops)
{
    stopsThread = &stops;
}

StopsWith::~StopsWith()
{
    stopsThread = nullptr;
}

void dieOfInterruption()
{
    std::signal(pendingSignal, SIG_DFL);
    std::raise(pendingSignal);
    std::abort();
}

SignalsBlocked::SignalsBlocked()
{
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
}

SignalsBlocked::~SignalsBlocked()
{
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}
