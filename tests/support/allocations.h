// Counts what a test program allocates, in the libraries it links too, and lets memory run out.
#pragma once

#include <cstddef>

/// Calls of operator new so far, on all threads.
std::size_t allocationCount();

/// Of these, the ones that gave memory which was not freed since.
std::size_t liveAllocations();

/// Lets one allocation fail: the next one for 0, the one after it for 1. For one thread at a time.
void failAllocation(int number);

/// Whether it has come to that. No allocation fails from here on.
bool allocationFailed();
