// Bytes through standard input and output, in whatever portions a pipe takes and gives them.
#pragma once

#include <cstddef>
#include <string>

constexpr char kStandardInput[] = "standard input"; // as messages call it
constexpr char kStandardOutput[] = "standard output";

/// Thrown when nobody reads the output any more.
struct ReaderGone {};

/// Makes a named pipe the standard input. Throws FileError, or Interrupted.
void takeInputFrom(const std::string& pipe);

/// Reads until `bytes` are there; fewer only at the end. Throws FileError, or Interrupted.
size_t readInput(void* to, size_t bytes);

/// Writes all. Throws ReaderGone, FileError, or Interrupted.
void writeOutput(const void* from, size_t bytes);

/// Where in a file the next byte written goes; -1 if output isn't a file that can be gone back in.
long outputPosition();

/// Writes anew what stands at `position` of that file. Throws FileError.
void rewriteOutput(long position, const void* from, size_t bytes);
