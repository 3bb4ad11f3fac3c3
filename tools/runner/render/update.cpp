// test --update: the scenario rewritten with what its runs gave, in a layout that keeps diffs
// small: four spaces per level, keys in a fixed order, and every object or list whose members
// are all plain values (or lists of them) on one line, so each output is one line.
#include <cjson/cJSON.h>

#include <algorithm>

#include "base/diag.h"
#include "render/report.h"
#include "render/test_report.h"

namespace preview {
namespace {

std::string Scalar(const cJSON* item) {
    std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_PrintUnformatted(item), &cJSON_free);
    return text ? text.get() : "null";
}

std::string Key(const char* key) {
    JsonPtr text(cJSON_CreateString(key));
    return Scalar(text.get());
}

bool Container(const cJSON* item) {
    return cJSON_IsObject(item) || cJSON_IsArray(item);
}

bool OneLine(const cJSON* item) {
    for (const cJSON* c = item->child; c != nullptr; c = c->next) {
        if (cJSON_IsObject(c)) return false;
        for (const cJSON* e = cJSON_IsArray(c) ? c->child : nullptr; e != nullptr; e = e->next) {
            if (Container(e)) return false;
        }
    }
    return true;
}

void Layout(const cJSON* item, size_t depth, std::string& out) {
    if (!Container(item)) {
        out += Scalar(item);
        return;
    }
    const bool object = cJSON_IsObject(item);
    const bool oneLine = depth > 0 && OneLine(item);
    const std::string indent(4 * depth, ' ');
    out += object ? '{' : '[';
    for (const cJSON* c = item->child; c != nullptr; c = c->next) {
        out += oneLine ? (c == item->child ? "" : ", ") : "\n" + indent + "    ";
        if (object) out += Key(c->string) + ": ";
        Layout(c, depth + 1, out);
        if (!oneLine && c->next != nullptr) out += ',';
    }
    if (!oneLine && item->child != nullptr) out += "\n" + indent;
    out += object ? '}' : ']';
}

void AddStatus(cJSON* e, int status) {
    if (status == 0)
        cJSON_AddNumberToObject(e, "status", 0);
    else
        cJSON_AddStringToObject(e, "status", Hex(status).c_str());
}

// The expected log texts that still hold; the others are dropped.
void AddLog(cJSON* e, const std::optional<Expectation>& old, const std::vector<LogLine>& log) {
    if (!old) return;
    cJSON* lines = cJSON_CreateArray();
    for (const std::string& wanted : old->log) {
        if (LogHolds(wanted, log)) cJSON_AddItemToArray(lines, cJSON_CreateString(wanted.c_str()));
    }
    if (lines->child != nullptr)
        cJSON_AddItemToObject(e, "log", lines);
    else
        cJSON_Delete(lines);
}

}  // namespace

cJSON* RunExpectation(const RunReport& run, const std::optional<Expectation>& old) {
    cJSON* e = cJSON_CreateObject();
    AddStatus(e, run.status);
    cJSON_AddStringToObject(e, "verdict", run.verdict.c_str());
    cJSON_AddStringToObject(e, "show_text_en", run.showTextEn.c_str());
    cJSON_AddStringToObject(e, "show_text_cn", run.showTextCn.c_str());
    cJSON* outputs = cJSON_AddObjectToObject(e, "outputs");
    for (const Output& o : run.outputs)
        cJSON_AddItemToObject(outputs, o.name.c_str(), ValueJson(o.value));
    // An output expected absent stays so while it is absent and still a name the
    // configuration publishes.
    const Expectation before = old.value_or(Expectation{});
    for (const auto& [name, value] : before.outputs) {
        const bool absent = std::none_of(run.outputs.begin(), run.outputs.end(),
                                         [&](const Output& o) { return o.name == name; });
        const bool known = std::find(run.outputNames.begin(), run.outputNames.end(), name) !=
                           run.outputNames.end();
        if (!value && absent && known) cJSON_AddNullToObject(outputs, name.c_str());
    }
    AddLog(e, old, run.log);
    return e;
}

namespace {

void Set(cJSON* object, const char* key, cJSON* value) {
    if (cJSON_GetObjectItemCaseSensitive(object, key) != nullptr) {
        cJSON_ReplaceItemInObjectCaseSensitive(object, key, value);
    } else {
        cJSON_AddItemToObject(object, key, value);
    }
}

}  // namespace

std::string LaidOut(const cJSON* root) {
    std::string text;
    Layout(root, 0, text);
    return EscapeInvalidUtf8(text, Escape::kJson) + "\n";
}

bool UpdatedScenario(const Outcome& o, std::string& text, std::string& reason) {
    std::string old;
    if (!ReadInput(o.path, old, reason)) return false;
    JsonPtr root(cJSON_ParseWithOpts(ReadByteEscapes(old).c_str(), nullptr, 1));
    if (!root) {
        reason = "is no longer valid JSON";
        return false;
    }
    // The first read gets an expectation where it fails, where it had one, and where there is
    // no run to hold one.
    if (o.scenario.expectInit || o.init.status != 0 || o.runs.empty()) {
        cJSON* e = cJSON_CreateObject();
        AddStatus(e, o.init.status);
        AddLog(e, o.scenario.expectInit, o.init.log);
        // A new expect_init goes before the runs.
        cJSON* runs = o.scenario.expectInit
                          ? nullptr
                          : cJSON_DetachItemFromObjectCaseSensitive(root.get(), "runs");
        Set(root.get(), "expect_init", e);
        if (runs != nullptr) cJSON_AddItemToObject(root.get(), "runs", runs);
    }
    cJSON* runs = cJSON_GetObjectItemCaseSensitive(root.get(), "runs");
    size_t i = 0;
    for (cJSON* run = runs != nullptr ? runs->child : nullptr; run != nullptr && i < o.runs.size();
         run = run->next, ++i) {
        Set(run, "expect", RunExpectation(o.runs[i], o.scenario.runs[i].expect));
    }
    text = LaidOut(root.get());
    return true;
}

}  // namespace preview
