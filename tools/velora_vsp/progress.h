// What the tool says on standard error: lines, and on a terminal below them how far it is.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

/// May be used by several threads.
class Progress {
public:
    /// @param sizes    how much work each job is
    /// @param isQuiet  leaves out all but complaints
    Progress(std::vector<double> sizes, bool isQuiet);
    ~Progress(); // wipes the bar
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void say(const std::string& line);
    void complain(const std::string& line);
    /// @param done  of the job, 0 to 1
    void show(size_t job, double done);

private:
    std::string bar() const;

    std::mutex mutex;
    std::vector<double> weights;
    std::vector<double> parts; // done of each job
    bool isQuiet;
    bool isTerminal;
    std::string shown; // as it stands there now
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
};

/// A part of a job on its way from 0 to 1.
class Phase {
public:
    Phase(Progress& shownBy, size_t number, double start, double finish)
        : progress(shownBy), job(number), from(start), to(finish)
    {
    }

    /// @param all  0 if nobody knows
    void show(double done, double all) const
    {
        if (all > 0.0)
            progress.show(job, from + (to - from) * std::clamp(done / all, 0.0, 1.0));
    }

private:
    Progress& progress;
    size_t job;
    double from;
    double to;
};
