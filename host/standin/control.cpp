#include "state.h"

namespace standin {

State& state() {
    static State s;
    return s;
}

void FailCall(Call op, int code) {
    state().failures[static_cast<size_t>(op)] = code;
}

void Reset() {
    state() = State{};
}

void SetFsRoot(const std::string& root) {
    state().fsRoot = root;
}

std::string ResolvePath(const std::string& path) {
    const std::string& root = state().fsRoot;
    if (root.empty() || path.empty() || path[0] != '/') return path;
    return root + path;
}

const std::vector<ResultCall>& ResultCalls() {
    return state().resultCalls;
}

int UpProcessTimeCalls() {
    return state().upProcessTimeCalls;
}

void SetHostPubEntries(const std::vector<DYNAMIC_PUBLISH_PARAM>& entries) {
    state().hostPubEntries = entries;
}

void DeclareParam(const std::string& name, int type, const std::vector<std::string>& accepted,
                  const std::string& initial) {
    PARAM_DESC desc;
    desc.name = name;
    desc.type = type;
    desc.accepted = accepted;
    desc.values = {initial};
    state().declaredParams[name] = desc;
}

}  // namespace standin
