// A preview's evaluation in a child process with bounds of its own, so that a configuration
// or a module that crashes, hangs, or eats memory, CPU or disk ends that preview alone: the
// server, and on a device the production line beside it, go on.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

namespace preview {

struct ChildLimits {
    // Address space: a device has 512 MiB for everything; a preview of a configuration needs a
    // few MiB beside the module.
    size_t memoryMiB = 256;
    // Wall-clock time, and CPU time: the examples take milliseconds.
    int seconds = 5;
    // What the child may print (its report) and write to files (the module's working folder).
    size_t outputBytes = 64u * 1024 * 1024;
};

// The exit code of a child that ran out of its memory (operator new failed under the limit).
constexpr int kExitOutOfMemory = 3;

// The child's side: applies the limits to the calling process before it loads the module.
// Returns false with the reason when one cannot be set. In sanitizer builds the address space
// is left alone (the sanitizers reserve terabytes of it); the rest still applies.
bool ApplyLimits(const ChildLimits& limits, std::string& reason);

struct ChildOutcome {
    std::string out;
    std::string err;
    // Why there is no result, in words for the page; "" when the child exited with 0.
    std::string problem;
    int exitCode = -1;  // when it exited
};

// Runs program with the one argument, input on its standard input, its outputs collected
// through non-blocking pipes until the time limit; then kills it. Every descriptor is closed
// on every path.
ChildOutcome RunChild(const std::string& program, const std::string& argument,
                      const std::string& input, const ChildLimits& limits);

}  // namespace preview
