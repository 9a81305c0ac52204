// Catches what an audio thread may not do, because nobody can say how long it takes: ask for memory
// or give it back, take a lock, call the system.
#pragma once

#include <functional>
#include <string>

namespace real_time {

/// While it lives, the C library's allocation functions and the locks of POSIX threads end the
/// process with a report; only inside watch.
class Section {
public:
    /// Both are for the report.
    Section(const char* call, double speed);
    ~Section();
    Section(const Section&) = delete;
    Section& operator=(const Section&) = delete;
};

struct Findings {
    std::string fault;       ///< what was done and where; empty if nothing was
    bool systemCallsWatched; ///< false if the kernel refuses to watch them
};

/// Runs `scenario` in a child process that may make no system call, in a Section or not.
/// Allocation outside of sections stays within memory that the process has already.
Findings watch(const std::function<void()>& scenario);

} // namespace real_time
