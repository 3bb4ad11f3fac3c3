// test --update: each run's expectations rewritten to what it gave, everything else in the file
// kept in its order, and a file that holds what its runs give.
#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "tools/runner/render/expect.h"
#include "tools/runner/render/test_report.h"

namespace preview {
namespace {

// One file per process: ctest runs the cases in parallel, each in a process of its own.
std::string Path() {
    return testing::TempDir() + "update_test." + std::to_string(getpid()) + ".json";
}

// An outcome of the scenario text, with what its first read and runs gave.
Outcome Loaded(const std::string& text, int initStatus, std::vector<RunReport> runs) {
    Outcome o;
    o.path = Path();
    std::ofstream(o.path, std::ios::binary) << text;
    FileError error;
    EXPECT_TRUE(LoadScenario(o.path, o.scenario, error)) << error.where << ": " << error.message;
    o.init.status = initStatus;
    o.init.log = {{4, "reading: done"}};
    o.runs = std::move(runs);
    return o;
}

std::string Updated(const Outcome& o) {
    std::string text;
    std::string reason;
    EXPECT_TRUE(UpdatedScenario(o, text, reason)) << reason;
    return text;
}

const char kScenario[] = R"({"description": "kept", "expect_init": {"status": 1},
 "config": {"ModuleName": "m", "List": [{"a": 1}]},
 "runs": [
  {"name": "first", "values": {"p:x": {"int": [1, 2]}},
   "expect": {"verdict": "OK", "outputs": {"gone": null, "stale": null, "shown": null},
              "log": ["kept line", "lost line"]}},
  {"name": "second", "img_mode": 1}],
 "module_id": 7})";

std::vector<RunReport> Runs() {
    std::vector<RunReport> runs(2);
    RunReport& first = runs[0];
    first.status = static_cast<int>(0xC0000004u);
    first.verdict = "NG";
    first.showTextEn = "a\nb";
    first.showTextCn = "\xc3";
    first.outputs.resize(2);
    first.outputs[0] = {"shown", {Value::Kind::kInt, true, {1, 2}, {}, {}}};
    first.outputs[1] = {"s", {Value::Kind::kString, false, {}, {}, {"x"}}};
    first.outputNames = {"shown", "gone", "s"};
    first.log = {{4, "\033[1mkept line\033[0m, as before"}};
    runs[1].verdict = "OK";
    return runs;
}

TEST(Update, RewritesExpectationsOnlyAndKeepsTheRestInOrder) {
    const Outcome o = Loaded(kScenario, 0, Runs());
    const std::string text = Updated(o);
    // An absent output stays expected absent while its name is published, a log text while
    // a line holds it; a run without expectations gets them.
    EXPECT_EQ(text, R"({
    "description": "kept",
    "expect_init": {"status": 0},
    "config": {
        "ModuleName": "m",
        "List": [
            {"a": 1}
        ]
    },
    "runs": [
        {
            "name": "first",
            "values": {
                "p:x": {"int": [1, 2]}
            },
            "expect": {
                "status": "0xC0000004",
                "verdict": "NG",
                "show_text_en": "a\nb",
                "show_text_cn": "\udcc3",
                "outputs": {
                    "shown": {"int": [1, 2]},
                    "s": {"string": "x"},
                    "gone": null
                },
                "log": ["kept line"]
            }
        },
        {
            "name": "second",
            "img_mode": 1,
            "expect": {
                "status": 0,
                "verdict": "OK",
                "show_text_en": "",
                "show_text_cn": "",
                "outputs": {}
            }
        }
    ],
    "module_id": 7
}
)");
    // The file written then holds every run, and updating it again changes nothing.
    const Outcome again = Loaded(text, 0, Runs());
    ASSERT_EQ(again.scenario.runs.size(), 2u);
    for (size_t i = 0; i < 2; ++i) {
        ASSERT_TRUE(again.scenario.runs[i].expect) << "runs[" << i << "]";
        size_t checks = 0;
        for (const Mismatch& m : CheckRun(*again.scenario.runs[i].expect, again.runs[i], checks)) {
            ADD_FAILURE() << "runs[" << i << "]." << m.what << ": " << m.expected << " vs "
                          << m.actual;
        }
    }
    EXPECT_EQ(Updated(again), text);
}

// The first read's expectation, compared as compact JSON.
TEST(Update, FirstReadExpectedWhereItFailsWasExpectedOrIsAlone) {
    const char* const run = R"({"name":"r","expect":{"status":0,"verdict":"",)"
                            R"("show_text_en":"","show_text_cn":"","outputs":{}}})";
    const struct {
        std::string scenario;
        int initStatus;
        std::string updated;
    } cases[] = {
        {R"({"config": {}, "runs": [{"name": "r"}], "algo_id": 1})", 0,
         std::string(R"({"config":{},"runs":[)") + run + R"(],"algo_id":1})"},
        // A new one goes before the runs, which then come last.
        {R"({"config": {}, "runs": [{"name": "r"}], "algo_id": 1})", 5,
         std::string(R"({"config":{},"algo_id":1,"expect_init":{"status":"0x00000005"},"runs":[)") +
             run + "]}"},
        // One there stays in its place, with the log texts that still hold.
        {R"({"config": {}, "runs": [{"name": "r"}],)"
         R"( "expect_init": {"status": 5, "log": ["done", "x"]}})",
         0,
         std::string(R"({"config":{},"runs":[)") + run +
             R"(],"expect_init":{"status":0,"log":["done"]}})"},
        {R"({"config": {}, "expect_init": {"log": ["x"]}})", 0,
         R"({"config":{},"expect_init":{"status":0}})"},
        {R"({"config": {}, "description": "alone"})", 0,
         R"({"config":{},"description":"alone","expect_init":{"status":0}})"},
    };
    for (const auto& c : cases) {
        std::vector<RunReport> runs(c.scenario.find("runs") == std::string::npos ? 0 : 1);
        const std::string text = Updated(Loaded(c.scenario, c.initStatus, std::move(runs)));
        const JsonPtr parsed(cJSON_ParseWithOpts(text.c_str(), nullptr, 1));
        ASSERT_TRUE(parsed) << text;
        std::unique_ptr<char, decltype(&cJSON_free)> compact(cJSON_PrintUnformatted(parsed.get()),
                                                             &cJSON_free);
        EXPECT_EQ(compact.get(), c.updated) << c.scenario;
    }
}

TEST(Update, AFileThatCannotBeReadAgainIsNotRewritten) {
    Outcome o = Loaded(kScenario, 0, Runs());
    std::ofstream(o.path, std::ios::binary) << R"({"config": {}, "runs": [)";
    std::string text = "untouched";
    std::string reason;
    EXPECT_FALSE(UpdatedScenario(o, text, reason));
    EXPECT_EQ(reason, "is no longer valid JSON");
    o.path = testing::TempDir() + "no-such-dir/update_test.json";
    EXPECT_FALSE(UpdatedScenario(o, text, reason));
    EXPECT_EQ(reason, "No such file or directory");
    EXPECT_EQ(text, "untouched");
}

}  // namespace
}  // namespace preview
