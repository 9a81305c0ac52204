// CPU time of the processing calls, on a machine that others use too: libraries take turns round
// by round, so that what slows the machine down slows all of them, and medians drop what hit one.
#pragma once

#include <string>
#include <vector>

#include "benchmarks/peers/stretcher.h"

double threadSeconds(); ///< CPU time of this thread
double wallSeconds();   ///< since some moment

/// Names the processor, and how busy it is.
void printMachine();

/// A program that measures in turns: its `main`, for the arguments [--rounds N], nine where N isn't
/// given. An exception of `print` ends it with its text and 1.
int printInRounds(const char* program, int count, char** arguments, void (*print)(int rounds));

/// A whole clip, block by block.
struct Pass {
    double cpuSeconds;               // of this thread, in processing calls alone
    long inFrames, outFrames;        // a last part of a block is left out
    std::vector<double> callSeconds; // [call], wall clock
};
Pass play(const Library& library, const Clip& clip, double speed, int blockFrames);

/// Who plays what.
struct Entrant {
    Library library;
    const Clip* clip;
};

struct Measurement {
    std::string name;
    int rate;                        // Hz
    std::vector<double> load;        // [round], CPU seconds per second of input
    std::vector<double> callSeconds; // [call], the shortest of all rounds: they do the same work
};

/// Throws std::runtime_error if a library returns less or more sound than the speed asks for.
std::vector<Measurement> measure(const std::vector<Entrant>& entrants, double speed,
                                 int blockFrames, int rounds);

double median(std::vector<double> values);
double largest(const std::vector<double>& values);
double nsPerFrame(const Measurement& m);
/// Range of the rounds as a share of their median.
double spread(const Measurement& m);
/// Median over the rounds of a's load as a share of b's in the same round.
double ratio(const Measurement& a, const Measurement& b);
