#include "drive/texts.h"

#include <cjson/cJSON.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "base/diag.h"
#include "drive/session.h"

namespace preview {

// Log lines carry terminal colour codes; off a terminal they only get in the way.
std::string StripColour(const std::string& text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\033' && i + 1 < text.size() && text[i + 1] == '[') {
            size_t end = text.find('m', i);
            if (end != std::string::npos) {
                i = end;
                continue;
            }
        }
        out += text[i];
    }
    return out;
}

const char* KindName(Value::Kind kind) {
    switch (kind) {
        case Value::Kind::kInt:
            return "int";
        case Value::Kind::kFloat:
            return "float";
        case Value::Kind::kString:
            return "string";
    }
    return "?";
}

namespace {

// The shortest text that reads back as the same float ("0.1", not "0.100000001").
std::string FloatText(float f) {
    char text[32];
    for (int precision = 1; precision <= 9; ++precision) {
        std::snprintf(text, sizeof text, "%.*g", precision, static_cast<double>(f));
        if (std::strtof(text, nullptr) == f) break;
    }
    return text;
}

// A float as a JSON number written as FloatText writes it; null for NaN and the infinities,
// which JSON cannot hold.
cJSON* FloatJson(float f) {
    return std::isfinite(f) ? cJSON_CreateRaw(FloatText(f).c_str()) : cJSON_CreateNull();
}

}  // namespace

std::string ValuesText(const Value& v) {
    std::ostringstream out;
    size_t n = v.kind == Value::Kind::kInt     ? v.ints.size()
               : v.kind == Value::Kind::kFloat ? v.floats.size()
                                               : v.texts.size();
    if (v.list) out << "[";
    for (size_t i = 0; i < n; ++i) {
        if (i > 0) out << ", ";
        if (v.kind == Value::Kind::kInt) out << v.ints[i];
        if (v.kind == Value::Kind::kFloat) out << FloatText(v.floats[i]);
        if (v.kind == Value::Kind::kString) out << '"' << Visible(v.texts[i]) << '"';
    }
    if (v.list) out << "]";
    return out.str();
}

cJSON* ValuesJson(const Value& v) {
    cJSON* array = cJSON_CreateArray();
    for (int i : v.ints) cJSON_AddItemToArray(array, cJSON_CreateNumber(i));
    for (float f : v.floats) cJSON_AddItemToArray(array, FloatJson(f));
    for (const auto& t : v.texts) cJSON_AddItemToArray(array, cJSON_CreateString(t.c_str()));
    return array;
}

cJSON* ValueJson(const Value& v) {
    cJSON* obj = cJSON_CreateObject();
    cJSON* values = ValuesJson(v);
    if (v.list) {
        cJSON_AddItemToObject(obj, KindName(v.kind), values);
        return obj;
    }
    cJSON* single = cJSON_DetachItemFromArray(values, 0);
    cJSON_AddItemToObject(obj, KindName(v.kind), single != nullptr ? single : cJSON_CreateNull());
    cJSON_Delete(values);
    return obj;
}

std::string RunLabel(size_t index, const std::string& name) {
    return "runs[" + std::to_string(index) + "]" + (name.empty() ? "" : " (\"" + name + "\")");
}

std::string Visible(const std::string& text) {
    std::string out;
    for (size_t i = 0; i < text.size();) {
        const auto c = static_cast<unsigned char>(text[i]);
        const size_t length = Utf8Length(text, i);
        if (length > 1) {
            out.append(text, i, length);
            i += length;
            continue;
        }
        ++i;
        if (c == '\n') {
            out += "\\n";
        } else if (c == '\r') {
            out += "\\r";
        } else if (c == '\t') {
            out += "\\t";
        } else if (c == '\\') {
            out += "\\\\";
        } else if (c < 0x20 || c == 0x7f || length == 0) {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02x", c);
            out += hex;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

}  // namespace preview
