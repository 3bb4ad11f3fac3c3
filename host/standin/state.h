// Process-wide state of the stand-in host, shared by its translation units.
//
// A real host serves many module instances from many threads at once, so every read and write
// of this state holds the one lock below; nothing else in the stand-in is shared.
#pragma once

#include <array>
#include <mutex>

#include "host/standin/standin.h"

namespace standin {

struct State {
    std::array<int, static_cast<size_t>(Call::kCount)> failures{};
    std::string fsRoot;
    std::vector<ResultCall> resultCalls;
    int upProcessTimeCalls = 0;
    std::vector<DYNAMIC_PUBLISH_PARAM> hostPubEntries;
    std::map<std::string, PARAM_DESC> declaredParams;
};

// The state with its lock; reached only through WithState.
struct Shared {
    std::mutex lock;
    State state;
};
Shared& shared();

// Runs f on the state under the lock and returns what it returns.
template <typename F>
auto WithState(F&& f) {
    Shared& s = shared();
    std::lock_guard<std::mutex> hold(s.lock);
    return f(s.state);
}

inline int failure(Call op) {
    return WithState([op](State& s) { return s.failures[static_cast<size_t>(op)]; });
}

}  // namespace standin
