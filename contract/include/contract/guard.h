// Catch-alls at the module's boundary. Nothing the module does may throw into the host, but
// one thing must pass: glibc cancels a thread by unwinding its stack with
// abi::__forced_unwind, and a handler that swallows that unwind makes the runtime abort the
// whole process ("exception not rethrown"). Every catch-all of the module goes through here.
#pragma once

#include <cxxabi.h>

// The unwind is caught by reference but carries no object: UBSan's null check on that
// reference binding is switched off for these two functions alone.
#define FORMATV2_CANCELLATION_SAFE __attribute__((no_sanitize("null")))

// Runs step; true when it returned, false when it threw anything but a cancellation.
template <typename Step>
FORMATV2_CANCELLATION_SAFE bool Guarded(Step&& step) {
    try {
        step();
        return true;
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) {
        return false;
    }
}

// step()'s result, or fallback()'s when step threw anything but a cancellation. The result is
// made in place: nothing is copied or moved on the way out.
template <typename Step, typename Fallback>
FORMATV2_CANCELLATION_SAFE auto GuardedOr(Step&& step, Fallback&& fallback) -> decltype(step()) {
    try {
        return step();
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) {
        return fallback();
    }
}
