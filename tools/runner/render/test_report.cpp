#include "render/test_report.h"

#include <cjson/cJSON.h>

#include <optional>

#include "base/diag.h"
#include "base/xml_writer.h"
#include "render/report.h"

namespace preview {
namespace {

std::string Plural(size_t n, const char* word) {
    return std::to_string(n) + " " + word + (n == 1 ? "" : "s");
}

std::string FindingPlace(const Outcome& o, int run) {
    return run < 0 ? "first read" : RunLabel(static_cast<size_t>(run), o.runs[run].name);
}

std::string MismatchText(const Mismatch& m) {
    return m.what + ": expected " + m.expected + ", got " + m.actual +
           (m.difference ? "; " + DifferenceText(*m.difference) : "");
}

// Why a run, or the first read (run -1), ended as it did: its status and the module's first
// error line.
struct Why {
    int status = 0;
    std::optional<std::string> firstError;  // without its line end
    Explanation explanation;                // in the configuration's terms, when told
};

Why WhyOf(const Outcome& o, int run) {
    const std::vector<LogLine>& log = run < 0 ? o.init.log : o.runs[run].log;
    Why why{run < 0 ? o.init.status : o.runs[run].status, std::nullopt, {}};
    if (run >= 0) why.explanation = o.runs[run].explanation;
    for (const LogLine& line : log) {
        if (line.level < LOG_LEVEL_ERR) continue;
        std::string text = StripColour(line.text);
        while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
        why.firstError = text;
        break;
    }
    return why;
}

std::string WhyText(const Why& why) {
    const Explanation& told = why.explanation;
    if (!told.message.empty()) {
        return "status " + StatusText(why.status) + "; " + told.where + ": " + told.message +
               (told.fix.empty() ? "" : " (fix: " + told.fix + ")");
    }
    return "status " + StatusText(why.status) + "; " +
           (why.firstError ? "first error line: " + Visible(*why.firstError) : "no error line");
}

cJSON* Copy(const JsonPtr& json) {
    return json ? cJSON_Duplicate(json.get(), 1) : cJSON_CreateNull();
}

}  // namespace

cJSON* FindingJson(const Outcome& o, const Finding& f) {
    cJSON* m = cJSON_CreateObject();
    cJSON_AddItemToObject(m, "run", f.run >= 0 ? cJSON_CreateNumber(f.run) : cJSON_CreateNull());
    cJSON_AddStringToObject(m, "name", f.run >= 0 ? o.runs[f.run].name.c_str() : "");
    cJSON_AddStringToObject(m, "what", f.mismatch.what.c_str());
    cJSON_AddItemToObject(m, "expected", Copy(f.mismatch.expectedJson));
    cJSON_AddItemToObject(m, "actual", Copy(f.mismatch.actualJson));
    if (!f.mismatch.note.empty()) cJSON_AddStringToObject(m, "note", f.mismatch.note.c_str());
    const Why why = WhyOf(o, f.run);
    cJSON_AddNumberToObject(m, "run_status", why.status);
    cJSON_AddStringToObject(m, "run_status_hex", Hex(why.status).c_str());
    cJSON_AddStringToObject(m, "run_status_meaning", StatusMeaning(why.status).c_str());
    cJSON_AddItemToObject(
        m, "first_error",
        why.firstError ? cJSON_CreateString(why.firstError->c_str()) : cJSON_CreateNull());
    if (const auto& d = f.mismatch.difference) {
        cJSON* diff = cJSON_AddObjectToObject(m, "difference");
        cJSON_AddItemToObject(
            diff, "element",
            d->element ? cJSON_CreateNumber(double(*d->element)) : cJSON_CreateNull());
        cJSON_AddNumberToObject(diff, "offset", static_cast<double>(d->offset));
        cJSON_AddItemToObject(diff, "expected",
                              d->expected ? cJSON_CreateNumber(*d->expected) : cJSON_CreateNull());
        cJSON_AddItemToObject(diff, "actual",
                              d->actual ? cJSON_CreateNumber(*d->actual) : cJSON_CreateNull());
        cJSON_AddStringToObject(diff, "text", DifferenceText(*d).c_str());
    }
    return m;
}

cJSON* OutcomeJson(const Outcome& o) {
    cJSON* entry = cJSON_CreateObject();
    cJSON_AddStringToObject(entry, "file", o.file.c_str());
    cJSON_AddBoolToObject(entry, "ok", o.Holds() || o.updated);
    if (o.Broken()) {
        cJSON_AddStringToObject(entry, "error", o.error.c_str());
        return entry;
    }
    if (o.updated) cJSON_AddBoolToObject(entry, "updated", true);
    cJSON_AddNumberToObject(entry, "runs", static_cast<double>(o.runs.size()));
    cJSON_AddNumberToObject(entry, "checks", static_cast<double>(o.checks));
    cJSON* mismatches = cJSON_AddArrayToObject(entry, "mismatches");
    for (const Finding& f : o.found) cJSON_AddItemToArray(mismatches, FindingJson(o, f));
    return entry;
}

void PrintOutcome(const Outcome& o, bool colour) {
    if (o.Broken()) return;  // said on standard error, counted in the summary
    const bool ok = o.Holds();
    const char* word = ok ? "ok" : o.updated ? "updated" : "FAILED";
    const char* on = colour ? (ok || o.updated ? "\033[32m" : "\033[1;31m") : "";
    const char* off = colour ? "\033[0m" : "";
    Print("%s: %s%s%s (%s, %s)\n", o.file.c_str(), on, word, off,
          Plural(o.runs.size(), "run").c_str(), Plural(o.checks, "check").c_str());
    // Per run (found in run order): why it ended as it did, then what does not hold.
    for (size_t i = 0; i < o.found.size(); ++i) {
        const Finding& f = o.found[i];
        if (i == 0 || o.found[i - 1].run != f.run) {
            Print("  %s: %s\n", FindingPlace(o, f.run).c_str(), WhyText(WhyOf(o, f.run)).c_str());
        }
        Print("    %s\n", MismatchText(f.mismatch).c_str());
    }
}

namespace {

// Seconds as JUnit writes them, to the millisecond.
std::string Time(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", seconds);
    return text;
}

// One testcase: its mismatches as one failure, the first in the message, all in the body.
void TestCase(XmlWriter& xml, const std::string& suite, const std::string& name, double seconds,
              const Why& why, const std::vector<const Mismatch*>& mismatches) {
    const XmlWriter::Attributes attributes = {
        {"classname", suite}, {"name", name}, {"time", Time(seconds)}};
    if (mismatches.empty()) {
        xml.Leaf("testcase", attributes);
        return;
    }
    std::string body = WhyText(why) + "\n";
    for (const Mismatch* m : mismatches) body += MismatchText(*m) + "\n";
    const std::string message = mismatches.size() == 1
                                    ? MismatchText(*mismatches[0])
                                    : Plural(mismatches.size(), "expectation") + " do not hold";
    xml.Start("testcase", attributes);
    xml.Leaf("failure", {{"type", "mismatch"}, {"message", message}}, body);
    xml.End();
}

// The testcases of a scenario that ran: one per run, and one for the first read where there is
// something to say about it.
struct Case {
    int run;
    std::string name;
    double seconds;
    std::vector<const Mismatch*> mismatches;
};

std::vector<Case> CasesOf(const Outcome& o) {
    std::vector<Case> cases;
    for (int run = -1; !o.Broken() && run < static_cast<int>(o.runs.size()); ++run) {
        std::vector<const Mismatch*> mine;
        for (const Finding& f : o.found) {
            if (f.run == run) mine.push_back(&f.mismatch);
        }
        if (run < 0 && mine.empty() && !o.scenario.expectInit) continue;
        const double seconds = run < 0 ? o.initSeconds
                               : static_cast<size_t>(run) < o.runSeconds.size()
                                   ? o.runSeconds[static_cast<size_t>(run)]
                                   : 0.0;
        cases.push_back({run, FindingPlace(o, run), seconds, std::move(mine)});
    }
    return cases;
}

struct Counts {
    size_t tests = 0;
    size_t failures = 0;
    size_t errors = 0;
    double seconds = 0;

    void Add(const Counts& c) {
        tests += c.tests;
        failures += c.failures;
        errors += c.errors;
        seconds += c.seconds;
    }
    XmlWriter::Attributes With(const char* key, const std::string& value) const {
        return {{key, value},
                {"tests", std::to_string(tests)},
                {"failures", std::to_string(failures)},
                {"errors", std::to_string(errors)},
                {"time", Time(seconds)}};
    }
};

Counts CountsOf(const Outcome& o, const std::vector<Case>& cases) {
    Counts c;
    c.tests = o.Broken() ? 1 : cases.size();
    c.errors = o.Broken() ? 1 : 0;
    for (const Case& k : cases) c.failures += k.mismatches.empty() ? 0 : 1;
    c.seconds = o.initSeconds;
    for (const double s : o.runSeconds) c.seconds += s;
    return c;
}

}  // namespace

std::string JUnitXml(const std::vector<Outcome>& outcomes) {
    std::vector<std::vector<Case>> cases;
    Counts total;
    for (const Outcome& o : outcomes) {
        cases.push_back(CasesOf(o));
        total.Add(CountsOf(o, cases.back()));
    }
    XmlWriter xml;
    xml.Start("testsuites", total.With("name", "formatv2_preview test"));
    for (size_t i = 0; i < outcomes.size(); ++i) {
        const Outcome& o = outcomes[i];
        xml.Start("testsuite", CountsOf(o, cases[i]).With("name", o.file));
        if (o.Broken()) {
            xml.Start("testcase", {{"classname", o.file}, {"name", "scenario"}, {"time", Time(0)}});
            xml.Leaf("error", {{"message", o.error}});
            xml.End();
        }
        for (const Case& c : cases[i]) {
            TestCase(xml, o.file, c.name, c.seconds, WhyOf(o, c.run), c.mismatches);
        }
        xml.End();
    }
    return xml.Finish();
}

}  // namespace preview
