// Builders for the text of "algo_private.json". Extra keys go first: the reader takes the first
// of two equal keys, so an extra overrides (or spoils) the default of the same name.
#pragma once

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace fv2test {

// s as a JSON string literal.
inline std::string Str(const std::string& s) {
    std::string out = "\"";
    for (unsigned char c : s) {
        char esc[8] = {static_cast<char>(c), 0};
        if (c < 0x20 || c == '"' || c == '\\') std::snprintf(esc, sizeof esc, "\\u%04x", c);
        out += esc;
    }
    return out + "\"";
}

inline std::string Common(const std::string& name, int convert) {
    return "\"ParamName\":" + Str(name) + ",\"ConvertType\":" + std::to_string(convert) +
           ",\"StrTruncEnable\":0,\"StrTruncStart\":0,\"StrTruncLen\":0,\"StrPrefix\":\"\","
           "\"StrSuffix\":\"\",\"StrDelete\":\"\"}";
}

// A subscribed value (custom 0), a custom text (custom 1) or a symbol (custom 0, "\\r\\n").
inline std::string Row(const std::string& name, const std::string& text, int convert = 3,
                       int custom = 0, const std::string& extra = "") {
    return "{" + extra + "\"SubParamStr\":" + Str(text) +
           ",\"IsCustomEdit\":" + std::to_string(custom) +
           ",\"ShowValue_CN\":\"cn\",\"ShowValue_EN\":" + Str(name + "_en") + "," +
           Common(name, convert);
}

// An array item; each field is {subscription text, separator}, fieldExtra leads every field.
inline std::string ArrayRow(const std::string& name,
                            const std::vector<std::pair<std::string, std::string>>& fields,
                            const std::string& fieldExtra = "") {
    std::string out = "{\"Array\":[";
    for (size_t i = 0; i < fields.size(); ++i) {
        out += (i ? ",{" : "{") + fieldExtra + "\"SubParamStr\":" + Str(fields[i].first) +
               ",\"Separator\":" + Str(fields[i].second) +
               ",\"ShowValue_CN\":\"c\",\"ShowValue_EN\":\"e\"}";
    }
    return out + "]," + Common(name, 3);
}

inline std::string Config(const std::vector<std::string>& rows, int concat = 0,
                          const std::string& top = "all", const std::string& module = "m") {
    std::string out = "{\"ModuleName\":" + Str(module) +
                      ",\"StrConcateEnable\":" + std::to_string(concat) +
                      ",\"ParamName\":" + Str(top) + ",\"SubParamList\":[";
    for (size_t i = 0; i < rows.size(); ++i) out += (i ? "," : "") + rows[i];
    return out + "]}";
}

}  // namespace fv2test
