// Builders for the text of "algo_private.json". Each row builder puts its caller's extra keys
// first: the reader takes the first of two equal keys, so extras override the defaults.
#pragma once

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace fv2test {

// s as a JSON string literal.
inline std::string Str(const std::string& s) {
    std::string out = "\"";
    for (char c : s) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char esc[8];
            std::snprintf(esc, sizeof esc, "\\u%04x", static_cast<unsigned char>(c));
            out += esc;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

inline std::string Common(const std::string& name, int convert) {
    return "\"ParamName\":" + Str(name) + ",\"ConvertType\":" + std::to_string(convert) +
           ",\"StrTruncEnable\":0,\"StrTruncStart\":0,\"StrTruncLen\":0,\"StrPrefix\":\"\","
           "\"StrSuffix\":\"\",\"StrDelete\":\"\"}";
}

// A subscribed value (custom = 0) or a custom text / symbol (custom = 1 / 0 with "\\r\\n").
inline std::string Row(const std::string& name, const std::string& text, int convert = 3,
                       int custom = 0, const std::string& extra = "") {
    return "{" + extra + "\"SubParamStr\":" + Str(text) +
           ",\"IsCustomEdit\":" + std::to_string(custom) + ",\"ShowValue_CN\":\"cn\"," +
           "\"ShowValue_EN\":" + Str(name + "_en") + "," + Common(name, convert);
}

// An array item; each field is {subscription text, separator}.
inline std::string ArrayRow(const std::string& name,
                            const std::vector<std::pair<std::string, std::string>>& fields) {
    std::string out = "{\"Array\":[";
    for (size_t i = 0; i < fields.size(); ++i) {
        out += (i ? ",{" : "{") + std::string("\"SubParamStr\":") + Str(fields[i].first) +
               ",\"Separator\":" + Str(fields[i].second) +
               ",\"ShowValue_CN\":\"c\",\"ShowValue_EN\":\"e\"}";
    }
    return out + "]," + Common(name, 3);
}

inline std::string Config(const std::vector<std::string>& rows, int concat = 0,
                          const std::string& top = "all") {
    std::string out = "{\"ModuleName\":\"m\",\"StrConcateEnable\":" + std::to_string(concat) +
                      ",\"ParamName\":" + Str(top) + ",\"SubParamList\":[";
    for (size_t i = 0; i < rows.size(); ++i) out += (i ? "," : "") + rows[i];
    return out + "]}";
}

}  // namespace fv2test
