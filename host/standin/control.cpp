#include "state.h"

#include <utility>

namespace standin {

Shared& shared() {
    static Shared s;
    return s;
}

void FailCall(Call op, int code) {
    WithState([&](State& s) { s.failures[static_cast<size_t>(op)] = code; });
}

void Reset() {
    WithState([](State& s) { s = State{}; });
}

void SetFsRoot(const std::string& root) {
    WithState([&](State& s) { s.fsRoot = root; });
}

std::string ResolvePath(const std::string& path) {
    const std::string root = WithState([](State& s) { return s.fsRoot; });
    // A path already below the root (a test's real working directory) is taken as it is.
    if (root.empty() || path.empty() || path[0] != '/' || path.rfind(root + "/", 0) == 0) {
        return path;
    }
    return root + path;
}

std::vector<ResultCall> ResultCalls() {
    return WithState([](State& s) { return s.resultCalls; });
}

std::vector<ResultCall> TakeResultCalls() {
    return WithState([](State& s) { return std::exchange(s.resultCalls, {}); });
}

int UpProcessTimeCalls() {
    return WithState([](State& s) { return s.upProcessTimeCalls; });
}

void SetHostPubEntries(const std::vector<DYNAMIC_PUBLISH_PARAM>& entries) {
    WithState([&](State& s) { s.hostPubEntries = entries; });
}

void DeclareParam(const std::string& name, int type, const std::vector<std::string>& accepted,
                  const std::string& initial) {
    PARAM_DESC desc;
    desc.name = name;
    desc.type = type;
    desc.accepted = accepted;
    desc.values = {initial};
    WithState([&](State& s) { s.declaredParams[name] = desc; });
}

}  // namespace standin
