// Control surface of the stand-in host library: lets tests and tools build run handles,
// inspect what the module asked of the host and make any host call fail. The module itself
// never includes this header.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/algo.h"
#include "host/scframe.h"

namespace standin {

// Host operations whose result a test can force.
enum class Call {
    kInit,
    kSetModuleType,
    kAddResultInfo,
    kSendResultInfoExist,
    kGetDynamicPubParam,
    kCheckParam,
    kSetParam,
    kOsalCopy,
    kOsalGetFileSize,
    kOsalMalloc,
    kOsalLoadFile,
    kGetByMap,
    kGetIntDynamic,
    kGetFloatDynamic,
    kGetStringDynamic,
    kCount
};

// Stand-in error codes (the host's own; the module passes them on unchanged).
constexpr int kErrNotFound = static_cast<int>(0xE0000301);
constexpr int kErrParamUnknown = static_cast<int>(0xE0000101);
constexpr int kErrParamValue = static_cast<int>(0xE0000102);
constexpr int kErrSubscribeSyntax = static_cast<int>(0xE0000401);

// From now on every call of op returns code (non-zero); code 0 lets it work again.
HOST_API void FailCall(Call op, int code);
// Clears failures, recorded calls, host publications, declared parameters and the file root.
HOST_API void Reset();

// Absolute paths given to the osal_ utilities are taken below root ("" = the real root),
// so a test's device paths (/mnt/...) live in its own directory; a path already below root
// is taken as it is.
HOST_API void SetFsRoot(const std::string& root);
HOST_API std::string ResolvePath(const std::string& path);

struct ResultCall {
    std::string op;  // "SetModuleType", "AddResultInfo" or "SendResultInfoExist"
    int a = 0;
    int b = 0;
    std::string textCn;
    std::string textEn;
    std::shared_ptr<CScFrame> frame;
    const CResultManage* manager = nullptr;  // whose result manager: one per module instance
};
// A copy of the calls so far, of every module instance, in the order they were made.
HOST_API std::vector<ResultCall> ResultCalls();
// The calls so far, which the stand-in then forgets: a driver of many runs keeps each run's
// own without copying every earlier one.
HOST_API std::vector<ResultCall> TakeResultCalls();
HOST_API int UpProcessTimeCalls();

// Entries that CStaticSubPub::GetDynamicPubParam places ahead of the module's own.
HOST_API void SetHostPubEntries(const std::vector<DYNAMIC_PUBLISH_PARAM>& entries);

// Declares a parameter to every parameter manager: its type, accepted texts (empty = any
// text of the type) and initial value.
HOST_API void DeclareParam(const std::string& name, int type,
                           const std::vector<std::string>& accepted, const std::string& initial);

// What the host hands Process as its first argument.
struct InputHandle {
    struct Binding {
        std::shared_ptr<CScFrame> frame;  // may be null: a resolution that yields no frame
        std::string key;
    };
    std::shared_ptr<CScFrame> frame;           // the run's input frame; null = none
    std::map<std::string, Binding> inputs;     // "inputN" -> where its value lives
    std::map<std::string, int> countOverride;  // count the getters report, if set

    void Bind(const std::string& input, std::shared_ptr<CScFrame> source, const std::string& key) {
        inputs[input] = Binding{std::move(source), key};
    }
    void* handle() { return this; }
};

// What the host hands Process as its second argument.
struct OutputHandle {
    std::shared_ptr<CScFrame> frame = std::make_shared<CScFrame>();
    void* handle() { return this; }
};

}  // namespace standin
