// check's reports of one configuration: every finding at the same line and column in the
// verdict, the compiler-style text (with its caret) and SARIF; the refusal the module stops at
// marked; and test's JUnit report as a CI reads it.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "contract/contract.h"
#include "tools/runner/base/diag.h"
#include "tools/runner/base/rules.h"
#include "tools/runner/base/xml_writer.h"
#include "tools/runner/check/check.h"
#include "tools/runner/render/expect.h"
#include "tools/runner/render/test_report.h"

namespace preview {
namespace {

// Row 0: an unknown key and a ConvertType out of range; row 1: a ParamName that is no text.
const std::string kLines[] = {
    R"({"ModuleName": "m", "StrConcateEnable": 0, "ParamName": "all", "SubParamList": [)",
    R"(  {"SubParamStr": "1:cam:v:*:%d", "IsCustomEdit": 0, "ShowValue_CN": "", "Colour": 1,)",
    R"(   "ShowValue_EN": "", "ParamName": "v", "ConvertType": 9, "StrTruncEnable": 0,)",
    R"(   "StrTruncStart": 0, "StrTruncLen": 0, "StrPrefix": "", "StrSuffix": "", "StrDelete": ""},)",
    R"(  {"SubParamStr": "1:cam:w:*:%d", "IsCustomEdit": 0, "ShowValue_CN": "", "ShowValue_EN": "",)",
    R"(   "ParamName": 5, "ConvertType": 3, "StrTruncEnable": 0, "StrTruncStart": 0,)",
    R"(   "StrTruncLen": 0, "StrPrefix": "", "StrSuffix": "", "StrDelete": ""}]})",
};

// Where a piece of text starts, as line and column counted from 1.
Place Find(const std::string& what, size_t line) {
    Place place;
    place.line = line;
    place.column = kLines[line - 1].find(what) + 1;
    return place;
}

// The docs' rule table lists exactly the findings of the table, with their levels and
// summaries, in the table's order.
TEST(Rules, TheDocsShowTheTable) {
    std::vector<std::string> documented;
    std::ifstream doc(FORMATV2_RULES_DOC);
    bool inTable = false;
    for (std::string line; std::getline(doc, line);) {
        if (line == "| rule | level | what it finds |") {
            inTable = true;
            std::getline(doc, line);  // the rule under the heading
            continue;
        }
        if (inTable && line.rfind("| ", 0) != 0) break;
        if (inTable) documented.push_back(line);
    }
    std::vector<std::string> table;
    for (const RuleEntry& e : kRules) {
        const char* level = e.level == Level::kRefusal ? "refusal"
                            : e.level == Level::kError ? "error"
                                                       : "warning";
        table.push_back(std::string("| ") + e.id + " | " + level + " | " + e.summary + " |");
    }
    EXPECT_EQ(documented, table);
}

// The verdict comes from the loaded module, the explanation from the runner's own reader:
// where the two builds disagree, the report says which gave which verdict.
TEST(Check, SaysWhenTheLoadedModuleAndTheRunnersReaderDisagree) {
    const std::string valid = R"({"ModuleName": "m", "StrConcateEnable": 0, "ParamName": "all",
        "SubParamList": [{"SubParamStr": "x", "IsCustomEdit": 1, "ShowValue_CN": "",
        "ShowValue_EN": "", "ParamName": "x", "ConvertType": 3, "StrTruncEnable": 0,
        "StrTruncStart": 0, "StrTruncLen": 0, "StrPrefix": "", "StrSuffix": "", "StrDelete": ""}]})";
    const Verdict refusedByModule = Examine(kStatusConfigRefused, valid);
    ASSERT_TRUE(refusedByModule.refusal);
    EXPECT_EQ(refusedByModule.refusal->rule, Rule::kVerdictsDiffer);
    EXPECT_NE(refusedByModule.refusal->message.find("runner's own reader accepts it"),
              std::string::npos);

    const Verdict acceptedByModule = Examine(0, R"({"ModuleName": "m"})");
    EXPECT_FALSE(acceptedByModule.refusal);
    ASSERT_EQ(acceptedByModule.warnings.size(), 1u);
    EXPECT_EQ(acceptedByModule.warnings[0].rule, Rule::kVerdictsDiffer);
    EXPECT_EQ(Examine(0, valid).warnings.size(), 0u);
}

// A refusal names what to edit: the earlier holder of a name used twice, and for a line-break
// row written with JSON escapes the symbol typed out.
TEST(Check, RefusalsNameWhatToEdit) {
    const auto config = [](const std::string& top, const std::vector<std::string>& rows) {
        std::string list;
        for (size_t i = 0; i < rows.size(); i += 2) {
            list +=
                std::string(list.empty() ? "" : ",") + R"({"SubParamStr": )" + rows[i] +
                R"(, "IsCustomEdit": 0, "ShowValue_CN": "", "ShowValue_EN": "", "ParamName": )" +
                rows[i + 1] +
                R"(, "ConvertType": 3, "StrTruncEnable": 0, "StrTruncStart": 0,
                       "StrTruncLen": 0, "StrPrefix": "", "StrSuffix": "", "StrDelete": ""})";
        }
        return R"({"ModuleName": "m", "StrConcateEnable": 0, "ParamName": )" + top +
               R"(, "SubParamList": [)" + list + "]}";
    };
    const std::string sub = R"("1:c:v:*:%d")";
    const struct {
        std::string text;
        Rule rule;
        const char* message;  // how the message ends, before the status
        const char* fix;      // how the fix begins
    } cases[] = {
        {config(R"("all")", {sub, R"("a")", sub, R"("b")", sub, R"("a")"}), Rule::kDuplicateName,
         "; SubParamList[0] holds it first", "give each output"},
        {config(R"("a")", {sub, R"("a")"}), Rule::kDuplicateName,
         "; the top-level \"ParamName\" (the joined output) holds it first", "give each output"},
        {config(R"("all")", {R"("\r\n")", R"("nl")"}), Rule::kSubscriptionRefused,
         "it is \"\\r\\n\"", R"(for a line-break row write "\\r\\n")"},
        {config(R"("all")", {R"("\r")", R"("nl")"}), Rule::kSubscriptionRefused, "it is \"\\r\"",
         R"(for a line-break row write "\\r")"},
    };
    for (const auto& c : cases) {
        const Verdict v = Examine(kStatusConfigRefused, c.text);
        ASSERT_TRUE(v.refusal) << c.text;
        EXPECT_EQ(v.refusal->rule, c.rule) << c.text;
        const std::string& m = v.refusal->message;
        EXPECT_EQ(m.substr(m.size() - std::min(m.size(), std::strlen(c.message))), c.message);
        EXPECT_EQ(v.refusal->fix.rfind(c.fix, 0), 0u) << v.refusal->fix;
    }
}

TEST(Check, EveryReportPlacesAFindingAlike) {
    std::string text;
    for (const std::string& line : kLines) text += line + "\n";
    const Verdict v = Examine(kStatusConfigRefused, text);

    // The reader's refusals in reading order, the first one where the module stops.
    ASSERT_EQ(v.refusals.size(), 2u);
    EXPECT_EQ(v.refusals[0].rule, Rule::kConvertTypeValue);
    EXPECT_TRUE(v.refusals[0].stops);
    EXPECT_FALSE(v.refusals[1].stops);
    // A refusal stands at the offending value, an unknown key at the key itself.
    const Place value = Find("9,", 3);
    const Place key = Find("\"Colour\"", 2);
    EXPECT_EQ(v.refusals[0].place.line, value.line);
    EXPECT_EQ(v.refusals[0].place.column, value.column);
    ASSERT_FALSE(v.warnings.empty());
    EXPECT_EQ(v.warnings[0].rule, Rule::kUnknownKey);
    EXPECT_EQ(v.warnings[0].place.line, key.line);
    EXPECT_EQ(v.warnings[0].place.column, key.column);

    testing::internal::CaptureStderr();
    Tell(Diagnostics(false), "c.json", text, v);
    const std::string told = testing::internal::GetCapturedStderr();
    const std::string caret = "       | " + std::string(key.column - 1, ' ') + "^\n";
    EXPECT_NE(told.find("c.json:2:" + std::to_string(key.column) + ": warning: "),
              std::string::npos)
        << told;
    EXPECT_NE(told.find("     2 | " + kLines[1] + "\n" + caret), std::string::npos) << told;
    // The stop note follows the first refusal only.
    const size_t stop = told.find("note: the module stops at this refusal");
    EXPECT_LT(told.find("c.json:3:"), stop) << told;
    EXPECT_LT(stop, told.find("c.json:6:")) << told;
    EXPECT_EQ(told.find("note:", stop + 1), std::string::npos) << told;

    // SARIF regions count columns from 1, as the text does.
    const JsonPtr sarif(SarifJson({{"c.json", "", &v}}, "1.0"));
    const cJSON* results = cJSON_GetObjectItem(
        cJSON_GetArrayItem(cJSON_GetObjectItem(sarif.get(), "runs"), 0), "results");
    bool seen = false;
    for (const cJSON* r = results ? results->child : nullptr; r != nullptr; r = r->next) {
        if (std::string(cJSON_GetObjectItem(r, "ruleId")->valuestring) !=
            RuleOf(Rule::kUnknownKey).id)
            continue;
        const cJSON* region = cJSON_GetObjectItem(
            cJSON_GetObjectItem(cJSON_GetArrayItem(cJSON_GetObjectItem(r, "locations"), 0),
                                "physicalLocation"),
            "region");
        EXPECT_EQ(cJSON_GetObjectItem(region, "startLine")->valueint, 2);
        EXPECT_EQ(cJSON_GetObjectItem(region, "startColumn")->valueint,
                  static_cast<int>(key.column));
        seen = true;
    }
    EXPECT_TRUE(seen);
}

// Every text of a JUnit report goes through one escape: markup as entities, and what XML 1.0
// cannot hold (control characters, bytes of no UTF-8 sequence, U+FFFE, U+FFFF) as the text
// reports show it; a line break in an attribute as a reference, which readers keep.
TEST(JUnit, EveryTextIsEscapedAsXmlCanHoldIt) {
    const struct {
        std::string text, content, attribute;
    } cases[] = {
        {R"(a<b>&"c")", "a&lt;b&gt;&amp;&quot;c&quot;", "a&lt;b&gt;&amp;&quot;c&quot;"},
        {"l1\nl2\tx", "l1\nl2\tx", "l1&#10;l2&#9;x"},
        {"cr\r\x01\x1f", "cr\\r\\x01\\x1f", "cr\\r\\x01\\x1f"},
        {"cut \xc3", "cut \\xc3", "cut \\xc3"},
        {"\xef\xbf\xbe\xef\xbf\xbf\xef\xbf\xbd", "\\uFFFE\\uFFFF\xef\xbf\xbd",
         "\\uFFFE\\uFFFF\xef\xbf\xbd"},
        {"\xe5\x85\xa8 ok", "\xe5\x85\xa8 ok", "\xe5\x85\xa8 ok"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(XmlEscape(c.text, false), c.content) << c.text;
        EXPECT_EQ(XmlEscape(c.text, true), c.attribute) << c.text;
    }

    // Whatever a scenario holds reaches the report only escaped (the layout is
    // TestReport.JUnitCountsEveryCaseAndEscapesWhatXmlCannotHold's).
    std::vector<Outcome> outcomes(2);
    outcomes[0].file = "a<&>\"\x01\xff.json";
    outcomes[0].runs.resize(2);
    outcomes[0].runs[1].name = "r\r\n\t\xef\xbf\xbf";
    Mismatch m;
    m.what = "verdict\x7f";
    m.expected = "\"\xef\xbf\xbe\"";
    m.actual = "\"\x02\n\"";
    outcomes[0].found.push_back({1, std::move(m)});
    outcomes[1].file = "b.json";
    outcomes[1].error = "no \"such\"\x1b file\n";
    const std::string xml = JUnitXml(outcomes);
    // Nothing XML 1.0 cannot hold is left: no control character but tab and line feed, no byte
    // of no UTF-8 sequence, neither U+FFFE nor U+FFFF.
    for (size_t i = 0; i < xml.size();) {
        const size_t length = Utf8Length(xml, i);
        ASSERT_NE(length, 0u) << "byte " << i;
        ASSERT_TRUE(xml[i] == '\n' || xml[i] == '\t' || static_cast<unsigned char>(xml[i]) >= 0x20)
            << "byte " << i;
        ASSERT_NE(xml.compare(i, 3, "\xef\xbf\xbe"), 0) << "byte " << i;
        ASSERT_NE(xml.compare(i, 3, "\xef\xbf\xbf"), 0) << "byte " << i;
        i += length;
    }
}

}  // namespace
}  // namespace preview
