// Shows on a terminal how far a job is; says nothing into a pipe or a file.
#pragma once

#include <cstdint>

class Progress {
public:
    /// @param total  what `done` counts up to; 0 or less if that isn't known, which shows nothing
    explicit Progress(int64_t total);
    ~Progress(); // wipes the bar
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void show(int64_t done);

private:
    int64_t total;
    int percent = -1; // shown last
};
