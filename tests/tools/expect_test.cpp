// Expectations against what a run gave: which do not hold, in the order written, how many were
// looked at and how each mismatch reads; then the text, JSON and JUnit reports of test.
#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "contract/contract.h"
#include "tools/runner/render/expect.h"
#include "tools/runner/render/test_report.h"

namespace preview {
namespace {

// An expectation as a scenario writes it, read by the scenario reader.
Expectation Expect(const std::string& json) {
    // One file per process: ctest runs the cases in parallel, each in a process of its own.
    const std::string path =
        testing::TempDir() + "expect_test." + std::to_string(getpid()) + ".json";
    std::ofstream(path, std::ios::binary)
        << R"({"config": {}, "runs": [{"expect": )" << json << "}]}";
    Scenario s;
    FileError error;
    EXPECT_TRUE(LoadScenario(path, s, error)) << json << ": " << error.message;
    return s.runs.empty() ? Expectation{} : s.runs[0].expect.value_or(Expectation{});
}

RunReport Sample() {
    RunReport run;
    run.verdict = "OK";
    run.showTextEn = "count:3";
    run.showTextCn = "a\n\xc3";
    run.outputs.resize(2);
    run.outputs[0] = {"count", {Value::Kind::kInt, true, {3}, {}, {}}};
    run.outputs[1] = {"name", {Value::Kind::kString, true, {}, {}, {"a\xc3"}}};
    run.outputNames = {"count", "name", "gone"};
    run.log = {{4, "\033[33mfirst line\033[0m"}, {5, "second"}};
    return run;
}

std::string Json(const JsonPtr& json) {
    if (!json) return "(none)";
    std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_PrintUnformatted(json.get()),
                                                      &cJSON_free);
    return text.get();
}

TEST(Expect, EveryExpectationThatDoesNotHoldInWrittenOrder) {
    const struct {
        const char* expect;
        size_t checks;
        const char* whats;
    } cases[] = {
        {"{}", 0, ""},
        {R"({"status": 0, "verdict": "OK", "show_text_en": "count:3", "show_text_cn": "a\n\udcc3",
             "outputs": {"count": {"int": [3]}, "name": {"string": ["a\udcc3"]}, "gone": null},
             "log": ["first line", "sec"]})",
         9, ""},
        {R"({"status": "0xC0000004"})", 1, "status"},
        {R"({"verdict": "NG"})", 1, "verdict"},
        {R"({"show_text_en": "count:3 ", "show_text_cn": "a\n"})", 2, "show_text_en show_text_cn"},
        {R"({"outputs": {"count": {"int": [4]}}})", 1, "outputs.count"},
        {R"({"outputs": {"count": {"int": [3, 3]}}})", 1, "outputs.count"},
        {R"({"outputs": {"count": {"int": 3}}})", 1, "outputs.count"},      // single, not a list
        {R"({"outputs": {"count": {"float": [3]}}})", 1, "outputs.count"},  // another kind
        {R"({"outputs": {"name": {"string": ["a\udcc4"]}}})", 1, "outputs.name"},
        {R"({"outputs": {"name": {"string": ["a"]}}})", 1, "outputs.name"},
        {R"({"outputs": {"name": null}})", 1, "outputs.name"},
        {R"({"outputs": {"gone": {"int": 1}}})", 1, "outputs.gone"},
        {R"({"outputs": {"nmae": null}})", 1, "outputs.nmae"},   // no such name: never holds
        {R"({"log": ["[33m", "first line\n"]})", 2, "log log"},  // colour codes are no text
        {R"({"log": ["second"], "outputs": {"name": null, "count": null}, "status": 1,
             "verdict": "NG"})",
         5, "status verdict outputs.name outputs.count"},
    };
    for (const auto& c : cases) {
        size_t checks = 10;  // added to, as over the runs of a scenario
        std::string whats;
        for (const Mismatch& m : CheckRun(Expect(c.expect), Sample(), checks)) {
            whats += (whats.empty() ? "" : " ") + m.what;
        }
        EXPECT_EQ(whats, c.whats) << c.expect;
        EXPECT_EQ(checks, 10 + c.checks) << c.expect;
    }
}

TEST(Expect, MismatchesReadAsTextAndJson) {
    const struct {
        const char* expect;
        const char* expected;
        const char* actual;
        const char* expectedJson;
        const char* actualJson;
        const char* note;
        const char* difference;  // where texts differ, as the reports say it
    } cases[] = {
        {R"({"status": "0xC0000004"})", "0xC0000004 (", "0x00000000 (", "-1073741820", "0", "", ""},
        {R"({"show_text_cn": "a\nb"})", R"("a\nb")", R"("a\n\xc3")", R"("a\nb")", "\"a\\n\xc3\"",
         "", R"(first difference at byte 2: expected 'b' (0x62), got '\xc3' (0xC3))"},
        {R"({"outputs": {"count": {"int": 4}}})", "int 4", "int [3]", R"({"int":4})",
         R"({"int":[3]})", "", ""},
        {R"({"outputs": {"name": {"string": ["b"]}}})", R"(string ["b"])", R"(string ["a\xc3"])",
         R"({"string":["b"]})", "{\"string\":[\"a\xc3\"]}", "",
         R"(first difference at byte 0 of element 0: expected 'b' (0x62), got 'a' (0x61))"},
        {R"({"outputs": {"gone": {"int": 1}}})", "int 1", "not published", R"({"int":1})", "null",
         "", ""},
        {R"({"outputs": {"count": null}})", "not published", "int [3]", "null", R"({"int":[3]})",
         "", ""},
        {R"({"outputs": {"nmae": null}})", "not published",
         R"(no such output; did you mean "name"?)", "null", "null",
         R"(no such output; did you mean "name"?)", ""},
        {R"({"log": ["third"]})", R"(a line containing "third")", "none of the 2 lines",
         R"("third")", R"(["first line","second"])", "", ""},
    };
    for (const auto& c : cases) {
        size_t checks = 0;
        const std::vector<Mismatch> found = CheckRun(Expect(c.expect), Sample(), checks);
        ASSERT_EQ(found.size(), 1u) << c.expect;
        const Mismatch& m = found[0];
        // A status's meaning is the host's wording: only its code is compared here.
        const size_t shown = m.what == "status" ? 12 : std::string::npos;
        EXPECT_EQ(m.expected.substr(0, shown), c.expected) << c.expect;
        EXPECT_EQ(m.actual.substr(0, shown), c.actual) << c.expect;
        EXPECT_EQ(Json(m.expectedJson), c.expectedJson) << c.expect;
        EXPECT_EQ(Json(m.actualJson), c.actualJson) << c.expect;
        EXPECT_EQ(m.note, c.note) << c.expect;
        EXPECT_EQ(m.difference ? DifferenceText(*m.difference) : "", c.difference) << c.expect;
    }
}

TEST(Expect, FirstReadChecksItsStatusAndLogOnly) {
    InitReport init;
    init.status = static_cast<int>(0xC0000004u);
    init.log = {{6, "refused: \033[1mSubParamList\033[0m"}};
    size_t checks = 0;
    const auto found = CheckInit(
        Expect(R"({"status": 0, "log": ["refused: SubParamList", "other"]})"), init, checks);
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0].what, "status");
    EXPECT_EQ(Json(found[0].actualJson), "-1073741820");
    EXPECT_EQ(found[1].what, "log");
    EXPECT_EQ(Json(found[1].expectedJson), R"("other")");
    EXPECT_EQ(checks, 3u);
    EXPECT_TRUE(CheckInit(Expect(R"({"status": "0xC0000004"})"), init, checks).empty());
}

Mismatch Wrong(const std::string& what, const std::string& expected, const std::string& actual) {
    return {what,    expected, actual,      JsonPtr(cJSON_CreateString(expected.c_str())),
            nullptr, "",       std::nullopt};
}

// Three scenarios: one failing on its first read and in its second run, one that could not
// be run, one that holds and expected its first read.
std::vector<Outcome> Outcomes() {
    std::vector<Outcome> out(3);
    Outcome& failing = out[0];
    failing.file = "dir/a&b.json";
    failing.checks = 4;
    failing.runs.resize(2);
    failing.runs[0].name = "q\"<x>\x01";
    // Why each part ended as it did: the status, and the first error line (not a later one).
    failing.init.status = kStatusConfigRefused;
    failing.init.log = {
        {4, "| Info | read\n"}, {6, "| Err  | refused\r\n"}, {6, "| Err  | later\n"}};
    failing.runs[1].status = kStatusNotDelivered;
    failing.initSeconds = 0.125;
    failing.runSeconds = {0.25, 1.5};
    failing.found.push_back({-1, Wrong("status", "0", "1")});
    failing.found.push_back({1, Wrong("verdict", "\"NG\"", "\"OK\xff\"")});
    failing.found.back().mismatch.difference = FirstDifference("NG", "NGx");
    failing.found.push_back({1, Wrong("log", "a", "b")});
    failing.found.back().mismatch.note = "why";
    out[1].file = "b.json";
    out[1].error = "runs[0].values: \"x\" <\x02>";
    Outcome& holding = out[2];
    holding.file = "c.json";
    holding.checks = 1;
    holding.scenario.expectInit = Expectation{};
    holding.runs.resize(1);
    holding.runs[0].name = "one";
    return out;
}

TEST(TestReport, JUnitCountsEveryCaseAndEscapesWhatXmlCannotHold) {
    EXPECT_EQ(JUnitXml(Outcomes()), R"xml(<?xml version="1.0" encoding="UTF-8"?>
<testsuites name="formatv2_preview test" tests="6" failures="2" errors="1" time="1.875">
  <testsuite name="dir/a&amp;b.json" tests="3" failures="2" errors="0" time="1.875">
    <testcase classname="dir/a&amp;b.json" name="first read" time="0.125">
      <failure type="mismatch" message="status: expected 0, got 1">status 0xC0000105 (the configuration text was refused: not JSON, a key missing or mistyped, or a row refused); first error line: | Err  | refused
status: expected 0, got 1
</failure>
    </testcase>
    <testcase classname="dir/a&amp;b.json" name="runs[0] (&quot;q&quot;&lt;x&gt;\x01&quot;)" time="0.250"/>
    <testcase classname="dir/a&amp;b.json" name="runs[1]" time="1.500">
      <failure type="mismatch" message="2 expectations do not hold">status 0xC0000004 (a subscribed value was not delivered, or its element number is out of range); no error line
verdict: expected &quot;NG&quot;, got &quot;OK\xff&quot;; first difference at byte 2: expected end of text, got 'x' (0x78)
log: expected a, got b
</failure>
    </testcase>
  </testsuite>
  <testsuite name="b.json" tests="1" failures="0" errors="1" time="0.000">
    <testcase classname="b.json" name="scenario" time="0.000">
      <error message="runs[0].values: &quot;x&quot; &lt;\x02&gt;"/>
    </testcase>
  </testsuite>
  <testsuite name="c.json" tests="2" failures="0" errors="0" time="0.000">
    <testcase classname="c.json" name="first read" time="0.000"/>
    <testcase classname="c.json" name="runs[0] (&quot;one&quot;)" time="0.000"/>
  </testsuite>
</testsuites>
)xml");
}

TEST(TestReport, TextAndJsonOfEachOutcome) {
    std::vector<Outcome> outcomes = Outcomes();
    outcomes.emplace_back().file = "u.json";
    outcomes.back().runs.resize(1);
    outcomes.back().found.push_back({0, Wrong("verdict", "\"NG\"", "\"OK\"")});
    outcomes.back().updated = true;
    const struct {
        const char* text;
        const char* json;
    } cases[] = {
        {"dir/a&b.json: FAILED (2 runs, 4 checks)\n"
         "  first read: status 0xC0000105 (the configuration text was refused: not JSON, a key "
         "missing or mistyped, or a row refused); first error line: | Err  | refused\n"
         "    status: expected 0, got 1\n"
         "  runs[1]: status 0xC0000004 (a subscribed value was not delivered, or its element "
         "number is out of range); no error line\n"
         "    verdict: expected \"NG\", got \"OK\\xff\"; first difference at byte 2: expected "
         "end of text, got 'x' (0x78)\n"
         "    log: expected a, got b\n",
         R"({"file":"dir/a&b.json","ok":false,"runs":2,"checks":4,"mismatches":[)"
         R"({"run":null,"name":"","what":"status","expected":"0","actual":null,)"
         R"("run_status":-1073741563,"run_status_hex":"0xC0000105","run_status_meaning":")"
         "the configuration text was refused: not JSON, a key missing or mistyped, or a row refused"
         R"(","first_error":"| Err  | refused"},)"
         R"({"run":1,"name":"","what":"verdict","expected":"\"NG\"","actual":null,)"
         R"("run_status":-1073741820,"run_status_hex":"0xC0000004","run_status_meaning":")"
         "a subscribed value was not delivered, or its element number is out of range"
         R"(","first_error":null,)"
         R"("difference":{"element":null,"offset":2,"expected":null,"actual":120,)"
         R"j("text":"first difference at byte 2: expected end of text, got 'x' (0x78)"}},)j"
         R"({"run":1,"name":"","what":"log","expected":"a","actual":null,"note":"why",)"
         R"("run_status":-1073741820,"run_status_hex":"0xC0000004","run_status_meaning":")"
         "a subscribed value was not delivered, or its element number is out of range"
         R"(","first_error":null}]})"},
        {"",
         "{\"file\":\"b.json\",\"ok\":false,\"error\":\"runs[0].values: \\\"x\\\" <\\u0002>\"}"},
        {"c.json: ok (1 run, 1 check)\n",
         R"({"file":"c.json","ok":true,"runs":1,"checks":1,"mismatches":[]})"},
        {"u.json: updated (1 run, 0 checks)\n  runs[0]: status 0x00000000 (success); no error "
         "line\n    verdict: expected \"NG\", got \"OK\"\n",
         R"({"file":"u.json","ok":true,"updated":true,"runs":1,"checks":0,"mismatches":[)"
         R"({"run":0,"name":"","what":"verdict","expected":"\"NG\"","actual":null,"run_status":0,)"
         R"("run_status_hex":"0x00000000","run_status_meaning":"success","first_error":null}]})"},
    };
    ASSERT_EQ(outcomes.size(), std::size(cases));
    for (size_t i = 0; i < outcomes.size(); ++i) {
        testing::internal::CaptureStdout();
        PrintOutcome(outcomes[i], false);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), cases[i].text);
        EXPECT_EQ(Json(JsonPtr(OutcomeJson(outcomes[i]))), cases[i].json);
    }
}

}  // namespace
}  // namespace preview
