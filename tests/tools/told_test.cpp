// A failed run explained in the configuration's terms: the row's place in the file the user
// wrote it in (here a configuration inline in its scenario), the value's place, what was asked
// and what came.
#include <gtest/gtest.h>

#include "tools/runner/commands/commands.h"
#include "tools/runner/drive/session.h"

namespace preview {
namespace {

TEST(Told, AFailedRunNamesTheRowTheValueAndWhatCame) {
    const std::string text =
        R"({"config": {"ModuleName": "m", "StrConcateEnable": 0, "ParamName": "all",
  "SubParamList": [
    {"SubParamStr": "1:blob:count:0:%d", "IsCustomEdit": 0, "ShowValue_CN": "c", "ShowValue_EN": "c",
     "ParamName": "count", "ConvertType": 1, "StrTruncEnable": 0, "StrTruncStart": 0,
     "StrTruncLen": 0, "StrPrefix": "", "StrSuffix": "", "StrDelete": ""}]},
 "runs": [
  {"img_mode": 0, "values": {"blob:count": {"string": ["7"]}}},
  {"img_mode": 0, "values": {"blob:count": {"int": []}}},
  {"img_mode": 0},
  {"img_mode": 0, "values": {"blob:count": {"int": [3]}}}]}
)";
    Scenario scenario;
    FileError error;
    ASSERT_TRUE(LoadScenarioText("night.json", text, scenario, error)) << error.message;
    Session session;
    InitReport init;
    std::string reason;
    ASSERT_TRUE(session.Open(FORMATV2_MODULE, reason)) << reason;
    ASSERT_TRUE(session.Init(scenario, init, reason)) << reason;
    std::vector<RunReport> runs;
    ASSERT_TRUE(Play(
        session, scenario, init, nullptr, 0, [](const Examined&) {}, reason, &runs))
        << reason;
    const std::string row = R"(night.json:3:21: row 0 ("count"))";
    const std::string told[] = {
        row + " reads blob:count as int; night.json:7:30 gives a string list of 1",
        row + " reads element 0 of blob:count; night.json:8:30 gives a list of 0",
        row + " reads blob:count as int; the run gives no value for it",
        "",
    };
    ASSERT_EQ(runs.size(), 4u);
    for (size_t i = 0; i < runs.size(); ++i) {
        const Explanation& why = runs[i].explanation;
        EXPECT_EQ(why.message.empty() ? "" : why.where + ": " + why.message, told[i]) << i;
        EXPECT_EQ(why.fix.empty(), told[i].empty() || i == 1) << i;
    }
}

}  // namespace
}  // namespace preview
