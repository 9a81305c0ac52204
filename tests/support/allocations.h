// Counts what a test program allocates, in the libraries it links too.
#pragma once

#include <cstddef>

/// Calls of operator new so far, on all threads.
std::size_t allocationCount();
