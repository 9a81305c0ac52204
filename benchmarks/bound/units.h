// What the units of this machine's processor can do at most, in nanoseconds.
#pragma once

#include <string>
#include <vector>

#include "benchmarks/bound/operations.h"

/// Operations that need the same unit, and the time that one of them keeps it busy: what `operations`
/// ask for takes at least the sum of their counts times `ns`.
struct Unit {
    std::string name;
    std::vector<Operation> operations;
    double ns;
};

/// Results that wait for the one before, and the time from one to the next.
enum class Chain { none, allPass, biquad };

struct Units {
    std::vector<Unit> units;
    double allPassNs; // S, S c >> 14, added to the next sum
    double biquadNs;  // y, its product, added to the next sum
    double nsOf(Chain chain) const
    {
        return chain == Chain::allPass ? allPassNs : chain == Chain::biquad ? biquadNs : 0.0;
    }
};

/// Takes about a tenth of a second on a machine with AVX2. Each time is the shortest of many.
Units measureUnits();
