// Parameters set and read by the host. Values live in the host's parameter manager; the one
// command "CommandFormatV2Ensure" re-reads the configuration file instead of being stored.
#include <cstdio>
#include <cstring>

#include "formatv2/formatv2.h"

using formatv2::Msg;

int CFormatV2Module::SetParam(const char* name, const char* value, int length) {
    // Only a zero length is refused: the value goes on whole, as a terminated text, and its
    // length is the host's business. ParamManage is made by the base class; a host that drops
    // it gets a refusal rather than a crash.
    if (name == nullptr || name[0] == '\0' || value == nullptr || length == 0 || !ParamManage) {
        return kStatusBadArgument;
    }

    const formatv2::Logger log = Log();
    int status = ParamManage->CheckParam(name, value);
    if (status != 0) {
        log.Say<Msg::kCheckParamFailed>(name, value);
    } else if (std::strcmp(name, kEnsureCommand) == 0) {
        status = GetSubParamList();
        if (status != 0) log.Say<Msg::kEnsureFailed>(status);
    } else {
        log.Say<Msg::kSetParamStart>(name, value);
        status = SetmoduParaHandle(name, value, length);
        if (status == 0) {
            status = ParamManage->SetParam(name, value, 0);
            if (status != 0) log.Say<Msg::kStoreParamFailed>(status);
        }
    }

    log.Say<Msg::kSetParamEnd>(name, value);
    return status;
}

int CFormatV2Module::GetParam(const char* name, char* buffer, int size, int* length) {
    if (name == nullptr || name[0] == '\0' || buffer == nullptr || length == nullptr || size < 1 ||
        !ParamManage) {
        return kStatusBadArgument;
    }
    const std::string value = ParamManage->GetParam(name, 0);
    // snprintf cuts to size - 1 characters and always terminates.
    std::snprintf(buffer, static_cast<size_t>(size), "%s", value.c_str());
    *length = static_cast<int>(std::strlen(buffer));
    return 0;
}

int CFormatV2Module::SetmoduParaHandle(const char* name, const char* value, int /*length*/) {
    return (name != nullptr && value != nullptr) ? 0 : kStatusMissing;
}
