#include "scenario.h"

#include <cjson/cJSON.h>

#include <cmath>
#include <fstream>
#include <memory>
#include <sstream>

namespace preview {
namespace {

struct JsonDeleter {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
};
using JsonPtr = std::unique_ptr<cJSON, JsonDeleter>;

std::string Dirname(const std::string& path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

// The configuration: inline (an object, printed back to text) or the path of a file,
// relative to the scenario's folder.
bool ReadConfig(const cJSON* config, const std::string& scenarioPath, std::string& out,
                std::string& error) {
    if (cJSON_IsString(config)) {
        std::string path = config->valuestring;
        if (!path.empty() && path[0] != '/') path = Dirname(scenarioPath) + "/" + path;
        if (!ReadFile(path, out)) {
            error = "cannot read configuration file " + path;
            return false;
        }
        return true;
    }
    if (cJSON_IsObject(config)) {
        std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_Print(config), &cJSON_free);
        if (!text) {
            error = "cannot print the inline configuration";
            return false;
        }
        out = text.get();
        return true;
    }
    error = "\"config\" must be an object or the path of a configuration file";
    return false;
}

bool ReadNumber(const cJSON* item, Value& value, std::string& error) {
    if (!cJSON_IsNumber(item)) {
        error = "expected a number";
        return false;
    }
    if (value.kind == Value::Kind::kInt) {
        double d = item->valuedouble;
        if (d != std::floor(d) || d < -2147483648.0 || d > 2147483647.0) {
            error = "expected a 32-bit integer";
            return false;
        }
        value.ints.push_back(static_cast<int>(d));
    } else {
        value.floats.push_back(static_cast<float>(item->valuedouble));
    }
    return true;
}

bool ReadElement(const cJSON* item, Value& value, std::string& error) {
    if (value.kind != Value::Kind::kString) return ReadNumber(item, value, error);
    if (!cJSON_IsString(item)) {
        error = "expected a text";
        return false;
    }
    value.texts.emplace_back(item->valuestring);
    return true;
}

// {"int": 5}, {"float": [1.5, 2]}, {"string": "abc"} ...
bool ReadValue(const cJSON* given, Value& value, std::string& error) {
    static const std::pair<const char*, Value::Kind> kKinds[] = {{"int", Value::Kind::kInt},
                                                                 {"float", Value::Kind::kFloat},
                                                                 {"string", Value::Kind::kString}};
    if (!cJSON_IsObject(given) || given->child == nullptr || given->child->next != nullptr) {
        error = "a value is an object with one key: \"int\", \"float\" or \"string\"";
        return false;
    }
    const cJSON* data = given->child;
    bool known = false;
    for (const auto& kind : kKinds) {
        if (std::string(data->string) == kind.first) {
            value.kind = kind.second;
            known = true;
        }
    }
    if (!known) {
        error = std::string("unknown value type \"") + data->string + "\"";
        return false;
    }
    value.list = cJSON_IsArray(data);
    if (!value.list) return ReadElement(data, value, error);
    for (const cJSON* e = data->child; e != nullptr; e = e->next) {
        if (!ReadElement(e, value, error)) return false;
    }
    return true;
}

bool ReadRun(const cJSON* run, const std::string& scenarioPath, RunSpec& out, std::string& error) {
    if (!cJSON_IsObject(run)) {
        error = "a run is an object";
        return false;
    }
    if (const cJSON* name = cJSON_GetObjectItemCaseSensitive(run, "name"); cJSON_IsString(name)) {
        out.name = name->valuestring;
    }
    if (const cJSON* frame = cJSON_GetObjectItemCaseSensitive(run, "input_frame")) {
        out.inputFrame = cJSON_IsTrue(frame);
    }
    if (const cJSON* mode = cJSON_GetObjectItemCaseSensitive(run, "img_mode")) {
        if (!cJSON_IsNumber(mode)) {
            error = "\"img_mode\" must be a number";
            return false;
        }
        out.imgMode = mode->valueint;
    }
    if (const cJSON* values = cJSON_GetObjectItemCaseSensitive(run, "values")) {
        if (!cJSON_IsObject(values)) {
            error = "\"values\" must be an object keyed \"publisher:output\"";
            return false;
        }
        for (const cJSON* v = values->child; v != nullptr; v = v->next) {
            Value value;
            if (!ReadValue(v, value, error)) {
                error = "value \"" + std::string(v->string ? v->string : "") + "\": " + error;
                return false;
            }
            out.values[v->string ? v->string : ""] = value;
        }
    }
    if (const cJSON* config = cJSON_GetObjectItemCaseSensitive(run, "replace_config")) {
        std::string text;
        if (!ReadConfig(config, scenarioPath, text, error)) {
            error = "\"replace_config\": " + error;
            return false;
        }
        out.newConfig = text;
    }
    if (const cJSON* param = cJSON_GetObjectItemCaseSensitive(run, "set_param")) {
        const cJSON* name = cJSON_GetObjectItemCaseSensitive(param, "name");
        const cJSON* value = cJSON_GetObjectItemCaseSensitive(param, "value");
        if (!cJSON_IsString(name) || !cJSON_IsString(value)) {
            error = "\"set_param\" needs the texts \"name\" and \"value\"";
            return false;
        }
        out.paramName = name->valuestring;
        out.paramValue = value->valuestring;
    }
    return true;
}

}  // namespace

bool ReadFile(const std::string& path, std::string& out) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::ostringstream text;
    text << in.rdbuf();
    out = text.str();
    return !in.bad();
}

std::string PositionOf(const std::string& text, size_t offset) {
    size_t line = 1;
    size_t column = 1;
    for (size_t i = 0; i < offset && i < text.size(); ++i) {
        if (text[i] == '\n') {
            ++line;
            column = 1;
        } else {
            ++column;
        }
    }
    return "line " + std::to_string(line) + ", column " + std::to_string(column);
}

bool LoadScenario(const std::string& path, Scenario& out, std::string& error) {
    std::string text;
    if (!ReadFile(path, text)) {
        error = path + ": cannot read the scenario file";
        return false;
    }
    const char* end = nullptr;
    JsonPtr root(cJSON_ParseWithOpts(text.c_str(), &end, 0));
    if (!root) {
        const char* at = cJSON_GetErrorPtr();
        size_t offset = at != nullptr ? static_cast<size_t>(at - text.c_str()) : 0;
        error = path + ": not valid JSON at " + PositionOf(text, offset);
        return false;
    }
    auto fail = [&](const std::string& what) {
        error = path + ": " + what;
        return false;
    };
    if (!cJSON_IsObject(root.get())) return fail("a scenario is a JSON object");

    const cJSON* config = cJSON_GetObjectItemCaseSensitive(root.get(), "config");
    if (config == nullptr) return fail("\"config\" is missing");
    std::string configError;
    if (!ReadConfig(config, path, out.configText, configError)) return fail(configError);

    if (const cJSON* id = cJSON_GetObjectItemCaseSensitive(root.get(), "module_id")) {
        if (!cJSON_IsNumber(id) || id->valueint < 0 || id->valueint > 299) {
            return fail("\"module_id\" must be a number from 0 to 299");
        }
        out.moduleId = id->valueint;
    }
    if (const cJSON* id = cJSON_GetObjectItemCaseSensitive(root.get(), "algo_id")) {
        if (!cJSON_IsNumber(id)) return fail("\"algo_id\" must be a number");
        out.algoId = id->valueint;
    }
    if (const cJSON* params = cJSON_GetObjectItemCaseSensitive(root.get(), "params")) {
        if (!cJSON_IsArray(params)) return fail("\"params\" must be a list");
        static const std::pair<const char*, int> kTypes[] = {
            {"int", 1}, {"float", 2}, {"string", 3}};
        for (const cJSON* p = params->child; p != nullptr; p = p->next) {
            ParamDecl decl;
            const cJSON* name = cJSON_GetObjectItemCaseSensitive(p, "name");
            if (!cJSON_IsString(name)) return fail("a parameter needs a \"name\"");
            decl.name = name->valuestring;
            if (const cJSON* type = cJSON_GetObjectItemCaseSensitive(p, "type");
                cJSON_IsString(type)) {
                for (const auto& t : kTypes) {
                    if (std::string(type->valuestring) == t.first) decl.type = t.second;
                }
            }
            if (const cJSON* init = cJSON_GetObjectItemCaseSensitive(p, "initial");
                cJSON_IsString(init)) {
                decl.initial = init->valuestring;
            }
            const cJSON* accepted = cJSON_GetObjectItemCaseSensitive(p, "accepted");
            for (const cJSON* a = accepted ? accepted->child : nullptr; a; a = a->next) {
                if (cJSON_IsString(a)) decl.accepted.emplace_back(a->valuestring);
            }
            out.params.push_back(decl);
        }
    }

    const cJSON* runs = cJSON_GetObjectItemCaseSensitive(root.get(), "runs");
    if (runs != nullptr && !cJSON_IsArray(runs)) return fail("\"runs\" must be a list");
    int index = 0;
    for (const cJSON* run = runs ? runs->child : nullptr; run != nullptr; run = run->next) {
        ++index;
        RunSpec plan;
        std::string runError;
        if (!ReadRun(run, path, plan, runError)) {
            return fail("run " + std::to_string(index) + ": " + runError);
        }
        out.runs.push_back(plan);
    }
    return true;
}

}  // namespace preview
