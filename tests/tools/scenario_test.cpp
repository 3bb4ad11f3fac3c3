// Scenario reading: numbers must fit what they are read into, and every error is placed at
// FILE:LINE:COL of the key or value concerned.
#include <gtest/gtest.h>

#include <unistd.h>

#include <climits>
#include <fstream>
#include <string>

#include "contract/contract.h"
#include "tools/runner/check/check.h"
#include "tools/runner/drive/scenario.h"

namespace preview {
namespace {

std::string Write(const std::string& text) {
    // One file per process: ctest runs the cases in parallel, each in a process of its own.
    const std::string path =
        testing::TempDir() + "scenario_test." + std::to_string(getpid()) + ".json";
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

TEST(Scenario, ErrorsArePlacedAndNumbersRangeChecked) {
    const std::string whole = ": must be a whole number from -2147483648 to 2147483647";
    const std::string status = ": must be a status: a whole number from -2147483648 to 4294967295";
    const std::string run = "{\"config\": {}, \"runs\": [{\"expect\":\n";
    const std::string values = "{\"config\": {}, \"runs\": [{\"values\":\n";
    const struct {
        std::string text;
        const char* place;
        std::string message;
    } cases[] = {
        {run + "{\"status\": 1e400}}]}", ":2:12", "runs[0].expect.status" + status},
        {run + "{\"status\": 4294967296}}]}", ":2:12", "runs[0].expect.status" + status},
        {run + "{\"status\": 0.5}}]}", ":2:12", "runs[0].expect.status" + status},
        {values + "{\"a:b\": {\"float\": [1, 3.5e38]}}}]}", ":2:23",
         "runs[0].values.a:b.float[1]: expected a 32-bit float, from -3.40282347e+38 to "
         "3.40282347e+38"},
        {values + "{\"a:b\": {\"float\": -1e400}}}]}", ":2:19",
         "runs[0].values.a:b.float: expected a 32-bit float, from -3.40282347e+38 to "
         "3.40282347e+38"},
        {values + "{\"a:b\": {\"int\": 2147483648}}}]}", ":2:17",
         "runs[0].values.a:b.int: expected a 32-bit integer"},
        {values + "{\"a:b\": {\"int\": [0, 1.5]}}}]}", ":2:21",
         "runs[0].values.a:b.int[1]: expected a 32-bit integer"},
        {"{\"config\": {}, \"runs\": [{},\n{\"img_mode\": 2147483648}]}", ":2:14",
         "runs[1].img_mode" + whole},
        {"{\"config\": {}, \"runs\": [{},\n{\"img_mode\": 1.5}]}", ":2:14",
         "runs[1].img_mode" + whole},
        {"{\"config\": {},\n\"module_id\": 299.5}", ":2:14",
         "module_id: must be a whole number from 0 to 299"},
        {"{\"config\": {},\n\"module_id\": -1}", ":2:14",
         "module_id: must be a whole number from 0 to 299"},
        {"{\"config\": {},\n\"module_id\": 300}", ":2:14",
         "module_id: must be a whole number from 0 to 299"},
        {"{\"config\": {},\n\"algo_id\": 1e10}", ":2:12", "algo_id" + whole},
        // Unknown keys at the key, a missing one at its object.
        {"{\"config\": {},\n\"runs\": [{\"name\": \"x\", \"img_mod\": 0}]}", ":2:24",
         "runs[0].img_mod: unknown key; did you mean \"img_mode\"?"},
        {values + "{\"flot\": 1}}]}", ":2:10",
         "runs[0].values.flot: a value is an object with one key: \"int\", \"float\" or "
         "\"string\""},
        {values + "{\"a:b\": {\"flot\": 1}}}]}", ":2:10",
         "runs[0].values.a:b.flot: unknown value type; did you mean \"float\"?"},
        {"{\"config\": {}, \"runs\": [{\"set_param\":\n  {\"value\": \"1\"}}]}", ":2:3",
         "runs[0].set_param.name: must be a text"},
        {"\n  {\"runs\": []}", ":2:3", "config: is missing"},
        {"{\"config\": 5}", ":1:12",
         "config: must be an object or the path of a configuration file"},
        {"{\"config\": {}, \"expect_init\":\n{\"status\": \"zz\"}}", ":2:12",
         "expect_init.status: must be a status: a number or a text such as \"0xC0000004\""},
        // Columns count the text as written, a byte escape as its six characters.
        {R"({"config": {}, "description": "\udcc3\udcc3", "bad": 1})", ":1:47", "bad: unknown key"},
    };
    for (const auto& c : cases) {
        const std::string path = Write(c.text);
        Scenario scenario;
        FileError error;
        EXPECT_FALSE(LoadScenario(path, scenario, error)) << c.text;
        EXPECT_EQ(error.where, path + c.place) << c.text;
        EXPECT_EQ(error.message, c.message) << c.text;
    }
}

// A configuration given to run or test, or a scenario to check, is told for what it is.
TEST(Scenario, FilesAreToldApartByTheirKeys) {
    const struct {
        const char* text;
        FileKind kind;
    } cases[] = {{"{\"SubParamList\": []}", FileKind::kConfiguration},
                 {"{\"subparamlist\": [], \"ModuleName\": \"x\"}", FileKind::kConfiguration},
                 {"{\"runs\": []}", FileKind::kScenario},
                 {"{\"config\": \"algo_private.json\"}", FileKind::kScenario},
                 {"{\"config\": {}, \"SubParamList\": []}", FileKind::kNeither},
                 {"[1]", FileKind::kNeither},
                 {"{", FileKind::kNeither}};
    for (const auto& c : cases) EXPECT_EQ(KindOf(c.text), c.kind) << c.text;
    const std::string path = Write("\n  {\"SubParamList\": []}");
    Scenario scenario;
    FileError error;
    EXPECT_FALSE(LoadScenario(path, scenario, error));
    EXPECT_EQ(error.where, path + ":2:3");
    EXPECT_EQ(error.message, WrongKind(FileKind::kConfiguration, path));
}

// An inline configuration is read as its bytes in the scenario, and a finding in it is placed
// at the scenario's line and column, byte escapes before it counted as written.
TEST(Scenario, InlineConfigurationsArePlacedInTheScenario) {
    const std::string config =
        R"({"ModuleName": "x", "StrConcateEnable": 0, "ParamName": "all", "SubParamList": [)"
        "\n"
        R"(  {"SubParamStr": "x", "IsCustomEdit": 1, "ShowValue_CN": "\udcc3", "ShowValue_EN": "",)"
        R"( "ParamName": "a", "ConvertType": 7, "StrTruncEnable": 0, "StrTruncStart": 0,)"
        R"( "StrTruncLen": 0, "StrPrefix": "", "StrSuffix": "", "StrDelete": ""}]})";
    const std::string text = "{\"runs\": [{}, {\"replace_config\":\n " + config + "}],\n" +
                             " \"config\": " + config + "}";
    const std::string path = Write(text);
    Scenario scenario;
    FileError error;
    ASSERT_TRUE(LoadScenario(path, scenario, error)) << error.where << ": " << error.message;
    for (const ConfigSource* c : {&scenario.config, &*scenario.runs[1].newConfig}) {
        ASSERT_TRUE(c->embedding);
        EXPECT_EQ(c->text.front(), '{');
        EXPECT_EQ(c->text.back(), '}');
        Verdict v = Examine(kStatusConfigRefused, c->text);
        ASSERT_TRUE(v.refusal);
        PlaceIn(v, *c->embedding);
        const bool first = c == &scenario.config;
        const size_t at = text.find("\"ConvertType\": 7", first ? text.find("\"config\"") : 0) + 15;
        EXPECT_EQ(v.refusal->place.offset, at);
        EXPECT_EQ(v.refusal->place.line, first ? 5u : 3u);
        EXPECT_EQ(v.refusal->place.column, at - text.rfind('\n', at));
    }
}

TEST(Scenario, NumbersAtTheEndsOfTheirRangesAreRead) {
    const std::string path = Write(R"({"config": {}, "module_id": 299, "algo_id": -2147483648,
        "expect_init": {"status": -2147483648},
        "runs": [{"img_mode": 2147483647, "expect": {"status": 4294967295},
                  "values": {"a:b": {"float": [3.4e38, -1e-50]}, "c:d": {"int": -2147483648}}}]})");
    Scenario s;
    FileError error;
    ASSERT_TRUE(LoadScenario(path, s, error)) << error.where << ": " << error.message;
    EXPECT_EQ(s.moduleId, 299);
    EXPECT_EQ(s.algoId, INT_MIN);
    EXPECT_EQ(s.expectInit->status, INT_MIN);
    ASSERT_EQ(s.runs.size(), 1u);
    EXPECT_EQ(s.runs[0].imgMode, INT_MAX);
    EXPECT_EQ(s.runs[0].expect->status, -1);  // 0xFFFFFFFF
    EXPECT_EQ(s.runs[0].values["a:b"].floats, (std::vector<float>{3.4e38f, 0.0f}));
    EXPECT_EQ(s.runs[0].values["c:d"].ints, std::vector<int>{INT_MIN});
}

}  // namespace
}  // namespace preview
