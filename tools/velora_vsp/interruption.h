// Ctrl-C and its relatives stop a job between two blocks, so that it can clear up after itself.
#pragma once

#include <atomic>
#include <csignal>

/// Thrown by throwIfInterrupted.
struct Interrupted {};

/// From now on SIGINT, SIGTERM and SIGHUP are only noted, a write beyond a file size limit fails
/// like one to a full disk, and one to a pipe that nobody reads fails, too. Signals that the caller
/// of the program ignores stay ignored.
void catchInterruptions();

/// Throws Interrupted if one of the signals has come.
void throwIfInterrupted();

/// While this lives, it throws in this thread when `stops` is true, too.
class StopsWith {
public:
    explicit StopsWith(const std::atomic<bool>& stops);
    ~StopsWith();
    StopsWith(const StopsWith&) = delete;
    StopsWith& operator=(const StopsWith&) = delete;
};

/// Ends the process as the signal that has come would have.
[[noreturn]] void dieOfInterruption();

/// While this lives, the thread and those that it starts get no signals: they go to others.
class SignalsBlocked {
public:
    SignalsBlocked();
    ~SignalsBlocked();
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t before;
};
