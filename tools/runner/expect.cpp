#include "expect.h"

#include <algorithm>

#include "report.h"

namespace preview {
namespace {

std::string Quoted(const std::string& text) { return "\"" + Visible(text) + "\""; }

void Status(const Expectation& e, int actual, std::vector<Mismatch>& out, size_t& checks) {
    if (!e.status) return;
    ++checks;
    if (*e.status != actual) out.push_back({"status", StatusText(*e.status), StatusText(actual)});
}

void Log(const Expectation& e, const std::vector<LogLine>& log, std::vector<Mismatch>& out,
         size_t& checks) {
    for (const std::string& wanted : e.log) {
        ++checks;
        const bool found = std::any_of(log.begin(), log.end(), [&](const LogLine& line) {
            return StripColour(line.text).find(wanted) != std::string::npos;
        });
        if (!found) {
            out.push_back({"log", "a line containing " + Quoted(wanted),
                           "none of the " + std::to_string(log.size()) + " lines"});
        }
    }
}

void Text(const char* what, const std::optional<std::string>& expected, const std::string& actual,
          std::vector<Mismatch>& out, size_t& checks) {
    if (!expected) return;
    ++checks;
    if (*expected != actual) out.push_back({what, Quoted(*expected), Quoted(actual)});
}

std::string Shown(const Value& v) {
    return std::string(KindName(v.kind)) + " " + ValuesText(v);
}

}  // namespace

std::vector<Mismatch> CheckRun(const Expectation& e, const RunReport& run, size_t& checks) {
    std::vector<Mismatch> out;
    Status(e, run.status, out, checks);
    Text("verdict", e.verdict, run.verdict, out, checks);
    Text("show_text_en", e.showTextEn, run.showTextEn, out, checks);
    Text("show_text_cn", e.showTextCn, run.showTextCn, out, checks);
    for (const auto& [name, expected] : e.outputs) {
        ++checks;
        const auto it = std::find_if(run.outputs.begin(), run.outputs.end(),
                                     [&](const Output& o) { return o.name == name; });
        const std::string actual = it == run.outputs.end() ? "not published" : Shown(it->value);
        if (!expected && it != run.outputs.end()) {
            out.push_back({"outputs." + name, "not published", actual});
        } else if (expected && (it == run.outputs.end() || !(it->value == *expected))) {
            out.push_back({"outputs." + name, Shown(*expected), actual});
        }
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
