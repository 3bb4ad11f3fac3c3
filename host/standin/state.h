// Process-wide state of the stand-in host, shared by its translation units.
#pragma once

#include <array>

#include "standin.h"

namespace standin {

struct State {
    std::array<int, static_cast<size_t>(Call::kCount)> failures{};
    std::string fsRoot;
    std::vector<ResultCall> resultCalls;
    int upProcessTimeCalls = 0;
    std::vector<DYNAMIC_PUBLISH_PARAM> hostPubEntries;
    std::map<std::string, PARAM_DESC> declaredParams;
};

State& state();

inline int failure(Call op) {
    return state().failures[static_cast<size_t>(op)];
}

}  // namespace standin
