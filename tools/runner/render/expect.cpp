#include "render/expect.h"

#include <algorithm>
#include <cstdio>

#include "render/report.h"

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
                       JsonPtr(cJSON_CreateString(wanted.c_str())), std::move(lines), "",
                       std::nullopt});
    }
}

// bytes: whether to say where the texts differ (not for a verdict).
void Text(const char* what, const std::optional<std::string>& expected, const std::string& actual,
          bool bytes, std::vector<Mismatch>& out, size_t& checks) {
    if (!expected) return;
    ++checks;
    if (*expected == actual) return;
    out.push_back({what, Quoted(*expected), Quoted(actual),
                   JsonPtr(cJSON_CreateString(expected->c_str())),
                   JsonPtr(cJSON_CreateString(actual.c_str())), "",
                   bytes ? FirstDifference(*expected, actual) : std::nullopt});
}

std::string Shown(const std::optional<Value>& v) {
    return v ? std::string(KindName(v->kind)) + " " + ValuesText(*v) : "not published";
}

JsonPtr ValueOrNull(const std::optional<Value>& v) {
    return JsonPtr(v ? ValueJson(*v) : cJSON_CreateNull());
}

// The first differing byte of two text outputs, in the first element where they differ.
std::optional<Difference> TextsDiffer(const std::optional<Value>& expected,
                                      const std::optional<Value>& actual) {
    if (!expected || !actual || expected->kind != Value::Kind::kString ||
        actual->kind != Value::Kind::kString) {
        return std::nullopt;
    }
    const std::vector<std::string>& e = expected->texts;
    const std::vector<std::string>& a = actual->texts;
    for (size_t i = 0; i < std::max(e.size(), a.size()); ++i) {
        if (i >= e.size() || i >= a.size()) return std::nullopt;  // an element more or less
        std::optional<Difference> d = FirstDifference(e[i], a[i]);
        if (!d) continue;
        if (expected->list || actual->list) d->element = i;
        return d;
    }
    return std::nullopt;
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
               ValueOrNull(expected), ValueOrNull(actual), "",
               std::nullopt};
    m.difference = TextsDiffer(expected, actual);
    if (!known) {
        m.note = "no such output" + DidYouMean(ClosestWord(name, run.outputNames));
        m.actual = m.note;
    }
    out.push_back(std::move(m));
}

}  // namespace

std::optional<Difference> FirstDifference(const std::string& expected, const std::string& actual) {
    const auto at = std::mismatch(expected.begin(), expected.end(), actual.begin(), actual.end());
    if (at.first == expected.end() && at.second == actual.end()) return std::nullopt;
    Difference d;
    d.offset = static_cast<size_t>(at.first - expected.begin());
    if (at.first != expected.end()) d.expected = static_cast<unsigned char>(*at.first);
    if (at.second != actual.end()) d.actual = static_cast<unsigned char>(*at.second);
    return d;
}

std::string DifferenceText(const Difference& d) {
    const auto byte = [](const std::optional<unsigned char>& b) {
        if (!b) return std::string("end of text");
        char hex[8];
        std::snprintf(hex, sizeof hex, "0x%02X", *b);
        return "'" + Visible(std::string(1, static_cast<char>(*b))) + "' (" + hex + ")";
    };
    std::string where = "first difference at byte " + std::to_string(d.offset);
    if (d.element) where += " of element " + std::to_string(*d.element);
    return where + ": expected " + byte(d.expected) + ", got " + byte(d.actual);
}

Mismatch StatusMismatch(int expected, int actual) {
    return {"status",
            StatusText(expected),
            StatusText(actual),
            JsonPtr(cJSON_CreateNumber(expected)),
            JsonPtr(cJSON_CreateNumber(actual)),
            "",
            std::nullopt};
}

std::vector<Mismatch> CheckRun(const Expectation& e, const RunReport& run, size_t& checks) {
    std::vector<Mismatch> out;
    Status(e, run.status, out, checks);
    Text("verdict", e.verdict, run.verdict, false, out, checks);
    Text("show_text_en", e.showTextEn, run.showTextEn, true, out, checks);
    Text("show_text_cn", e.showTextCn, run.showTextCn, true, out, checks);
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

namespace {

// An expectation split into expectations of one check each, in the order CheckRun looks.
std::vector<Expectation> Singles(const Expectation& e) {
    std::vector<Expectation> out;
    const auto add = [&](auto set) {
        Expectation one;
        set(one);
        out.push_back(std::move(one));
    };
    if (e.status) add([&](Expectation& one) { one.status = e.status; });
    if (e.verdict) add([&](Expectation& one) { one.verdict = e.verdict; });
    if (e.showTextEn) add([&](Expectation& one) { one.showTextEn = e.showTextEn; });
    if (e.showTextCn) add([&](Expectation& one) { one.showTextCn = e.showTextCn; });
    for (const auto& output : e.outputs) add([&](Expectation& one) { one.outputs = {output}; });
    for (const std::string& text : e.log) add([&](Expectation& one) { one.log = {text}; });
    return out;
}

// What a single expectation asks for, as the text report words it.
ExpectationCheck Asked(const Expectation& one) {
    if (one.status) return {"status", StatusText(*one.status), "", true, ""};
    if (one.verdict) return {"verdict", Quoted(*one.verdict), "", true, ""};
    if (one.showTextEn) return {"show_text_en", Quoted(*one.showTextEn), "", true, ""};
    if (one.showTextCn) return {"show_text_cn", Quoted(*one.showTextCn), "", true, ""};
    if (!one.outputs.empty()) {
        return {"outputs." + one.outputs[0].first, Shown(one.outputs[0].second), "", true, ""};
    }
    return {"log", "a line containing " + Quoted(one.log.at(0)), "", true, ""};
}

template <class Report, class Check>
std::vector<ExpectationCheck> Each(const Expectation& e, const Report& report, Check check) {
    std::vector<ExpectationCheck> out;
    for (const Expectation& one : Singles(e)) {
        size_t checks = 0;
        const std::vector<Mismatch> found = check(one, report, checks);
        ExpectationCheck c = Asked(one);
        c.holds = found.empty();
        if (found.empty()) {
            c.actual = c.expected;
        } else {
            c.actual = found[0].actual;
            if (found[0].difference) c.difference = DifferenceText(*found[0].difference);
        }
        out.push_back(std::move(c));
    }
    return out;
}

}  // namespace

std::vector<ExpectationCheck> EachExpectation(const Expectation& e, const RunReport& run) {
    return Each(e, run, CheckRun);
}

std::vector<ExpectationCheck> EachExpectation(const Expectation& e, const InitReport& init) {
    return Each(e, init, CheckInit);
}

}  // namespace preview
