// What the vector instructions of a kernel are, by what a processor has units for.
#pragma once

#include <array>
#include <cstddef>

enum class Operation { arithmetic, shift, multiply, shuffle, crossing, load, store };
constexpr size_t kOperations = 7;

/// How many of each.
using Operations = std::array<double, kOperations>;

/// Where the counting kernels count.
extern Operations operationsDone;

inline void countOperation(Operation operation)
{
    operationsDone[size_t(operation)] += 1.0;
}
