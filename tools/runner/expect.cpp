#include "expect.h"

#include <algorithm>

#include "report.h"

namespace preview {
namespace {

std::string Quoted(const std::string& text) {
    return "\"" + Visible(text) + "\"";
}

void Status(const Expectation& e, int actual, std::vector<Mismatch>& out, size_t& checks) {
    if (!e.status) return;
    ++checks;
    if (*e.status != actual) out.push_back(StatusMismatch(*e.status, actual));
}

}  // namespace

bool LogHolds(const std::string& wanted, const std::vector<LogLine>& log) {
    return std::any_of(log.begin(), log.end(), [&](const LogLine& line) {
        return StripColour(line.text).find(wanted) != std::string::npos;
    });
}

namespace {

void Log(const Expectation& e, const std::vector<LogLine>& log, std::vector<Mismatch>& out,
         size_t& checks) {
    for (const std::string& wanted : e.log) {
        ++checks;
        if (LogHolds(wanted, log)) continue;
        JsonPtr lines(cJSON_CreateArray());
        for (const LogLine& line : log) {
            cJSON_AddItemToArray(lines.get(), cJSON_CreateString(StripColour(line.text).c_str()));
        }
        out.push_back({"log", "a line containing " + Quoted(wanted),
                       "none of the " + std::to_string(log.size()) + " lines",
                       JsonPtr(cJSON_CreateString(wanted.c_str())), std::move(lines), ""});
    }
}

void Text(const char* what, const std::optional<std::string>& expected, const std::string& actual,
          std::vector<Mismatch>& out, size_t& checks) {
    if (!expected) return;
    ++checks;
    if (*expected == actual) return;
    out.push_back({what, Quoted(*expected), Quoted(actual),
                   JsonPtr(cJSON_CreateString(expected->c_str())),
                   JsonPtr(cJSON_CreateString(actual.c_str())), ""});
}

std::string Shown(const std::optional<Value>& v) {
    return v ? std::string(KindName(v->kind)) + " " + ValuesText(*v) : "not published";
}

JsonPtr ValueOrNull(const std::optional<Value>& v) {
    return JsonPtr(v ? ValueJson(*v) : cJSON_CreateNull());
}

// One output expectation. A name that no publish table of the session has cannot hold, even
// as null: it is most likely misspelt.
void OutputCheck(const std::string& name, const std::optional<Value>& expected,
                 const RunReport& run, std::vector<Mismatch>& out) {
    const auto it = std::find_if(run.outputs.begin(), run.outputs.end(),
                                 [&](const Output& o) { return o.name == name; });
    const std::optional<Value> actual =
        it == run.outputs.end() ? std::nullopt : std::optional<Value>(it->value);
    const bool known = actual || std::find(run.outputNames.begin(), run.outputNames.end(), name) !=
                                     run.outputNames.end();
    if (known && actual.has_value() == expected.has_value() && (!actual || *actual == *expected)) {
        return;
    }
    Mismatch m{"outputs." + name,     Shown(expected),     Shown(actual),
               ValueOrNull(expected), ValueOrNull(actual), ""};
    if (!known) {
        m.note = "no such output" + DidYouMean(ClosestWord(name, run.outputNames));
        m.actual = m.note;
    }
    out.push_back(std::move(m));
}

}  // namespace

Mismatch StatusMismatch(int expected, int actual) {
    return {"status",
            StatusText(expected),
            StatusText(actual),
            JsonPtr(cJSON_CreateNumber(expected)),
            JsonPtr(cJSON_CreateNumber(actual)),
            ""};
}

std::vector<Mismatch> CheckRun(const Expectation& e, const RunReport& run, size_t& checks) {
    std::vector<Mismatch> out;
    Status(e, run.status, out, checks);
    Text("verdict", e.verdict, run.verdict, out, checks);
    Text("show_text_en", e.showTextEn, run.showTextEn, out, checks);
    Text("show_text_cn", e.showTextCn, run.showTextCn, out, checks);
    for (const auto& [name, expected] : e.outputs) {
        ++checks;
        OutputCheck(name, expected, run, out);
    }
    Log(e, run.log, out, checks);
    return out;
}

std::vector<Mismatch> CheckInit(const Expectation& e, const InitReport& init, size_t& checks) {
    std::vector<Mismatch> out;
    Status(e, init.status, out, checks);
    Log(e, init.log, out, checks);
    return out;
}

}  // namespace preview
