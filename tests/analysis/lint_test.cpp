// The lint rules as one table: each case changes a clean row (or the top level) and names the
// one warning it must give, or none. A case that gives any other warning fails, so the table
// guards against false alarms as much as against missed ones.
#include <gtest/gtest.h>

#include <cctype>
#include <string>

#include "analysis/lint.h"
#include "contract/contract.h"
#include "format/formatter.h"
#include "host/algo.h"

namespace formatv2 {
namespace {

std::vector<Finding> LintOf(const std::string& text) {
    return Lint(text, &CAlgoUtils::ParseSubscribeItem);
}

// A configuration of one row: the case's keys, then the keys of a clean subscribed row that
// the case does not set.
std::string Build(const std::string& overrides) {
    const std::string clean =
        R"("SubParamStr": "1:cam:v:*:%d", "IsCustomEdit": 0, "ShowValue_CN": "", "ShowValue_EN": "",
           "ParamName": "v", "ConvertType": 3, "StrTruncEnable": 0, "StrTruncStart": 0,
           "StrTruncLen": 0, "StrPrefix": "", "StrSuffix": "", "StrDelete": "")";
    std::string row = "{" + overrides;
    std::string lower = overrides;  // keys in other letter case count as set too
    for (char& ch : lower) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    // Only the clean keys the case does not set follow, so no key stands twice by accident;
    // an array row gets none of the keys that only single items read.
    const bool array = overrides.rfind("\"Array\": [", 0) == 0;
    for (size_t start = 0; start < clean.size();) {
        size_t end = clean.find(',', start);
        if (end == std::string::npos) end = clean.size();
        const std::string pair = clean.substr(start, end - start);
        std::string key = pair.substr(pair.find('"'), pair.find(':') - pair.find('"'));
        for (char& ch : key) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
        const bool single = key == "\"subparamstr\"" || key == "\"iscustomedit\"" ||
                            key.rfind("\"showvalue", 0) == 0;
        if (lower.find(key) == std::string::npos && !(array && single)) {
            row += (row.size() > 1 ? "," : "") + pair;
        }
        start = end + 1;
    }
    return R"({"ModuleName": "m", "StrConcateEnable": 0, "ParamName": "all", "SubParamList": [)" +
           row + "}]}";
}

const std::string kArray = R"("Array": [{"SubParamStr": "1:cam:a:*:%d", "Separator": ",",
                                          "ShowValue_CN": "", "ShowValue_EN": ""}, )";

TEST(Lint, OneWarningPerMistakeAndNoneForWhatWorks) {
    const std::string field =
        kArray + R"({"Separator": "", "ShowValue_CN": "", "ShowValue_EN": "", "SubParamStr": )";
    const std::string cases[][4] = {
        // Conversion texts and their numbers.
        {R"("SubParamStr": "1:cam:v:*:%e")", "no-value-type", "SubParamStr", ""},
        {R"("SubParamStr": "1:cam:v:*:")", "no-value-type", "SubParamStr", ""},
        {field + R"("1:cam:b:*:%q"}])", "field-no-value-type", "SubParamStr", "1"},
        {R"("SubParamStr": "1:cam:v:*:%.2f")", "format-no-precision", "SubParamStr", ""},
        {R"("SubParamStr": "1:cam:v:*:%8f")", "format-no-precision", "SubParamStr", ""},
        {R"("SubParamStr": "1:cam:v:*:%-5d")", "format-flag", "SubParamStr", ""},
        {R"("SubParamStr": "1:cam:v:*:%+5d")", "format-flag", "SubParamStr", ""},
        {R"("SubParamStr": "1:cam:v:*:%#8d")", "format-flag", "SubParamStr", ""},
        {R"("SubParamStr": "1:cam:v:*:%3.0f")", "format-zero-precision", "SubParamStr", ""},
        {R"("SubParamStr": "1:cam:v:*:%8x")", "format-letter", "SubParamStr", ""},
        {field + R"("1:cam:b:*:%u"}])", "format-letter", "SubParamStr", "1"},
        {R"("SubParamStr": "1:cam:v:*:%4097d")", "format-width-cap", "SubParamStr", ""},
        {R"("SubParamStr": "1:cam:v:*:%2.5000f")", "format-width-cap", "SubParamStr", ""},
        {R"("SubParamStr": "1:cam:v:*:%10s")", "format-text-width", "SubParamStr", ""},
        // Index texts.
        {R"("SubParamStr": "1:cam:v:first:%d")", "index-not-number", "SubParamStr", ""},
        {R"("SubParamStr": "1:cam:v:-1:%d")", "index-not-number", "SubParamStr", ""},
        {R"("SubParamStr": "1:cam:v:2abc:%d")", "index-loose", "SubParamStr", ""},
        {R"("SubParamStr": "1:cam:v:99999999999:%d")", "index-not-number", "SubParamStr", ""},
        {field + R"("1:cam:b:0:%d"}])", "index-ignored", "SubParamStr", "1"},
        // Names.
        {R"("ParamName": "")", "empty-name", "ParamName", ""},
        {R"("ParamName": ")" + std::string(48, 'n') + "\"", "name-cut", "ParamName", ""},
        {R"("ParamName": ")" + std::string(64, 'n') + "\"", "name-cut", "ParamName", ""},
        // Texts converted to numbers, text settings on numbers, truncation.
        {R"("SubParamStr": "12", "IsCustomEdit": 1, "ConvertType": 1)", "convert-text-to-number",
         "ConvertType", ""},
        {R"("SubParamStr": "\\r\\n", "ConvertType": 2)", "text-not-number", "ConvertType", ""},
        {R"("SubParamStr": "Lot", "IsCustomEdit": 1, "ConvertType": 1)", "text-not-number",
         "ConvertType", ""},
        {kArray +
             R"({"SubParamStr": "1:cam:b:*:%d", "Separator": "", "ShowValue_CN": "", "ShowValue_EN": ""}], "ConvertType": 1)",
         "convert-text-to-number", "ConvertType", ""},
        {R"("ConvertType": 1, "StrPrefix": "x")", "text-settings-ignored", "StrPrefix", ""},
        {R"("StrTruncEnable": 1, "StrTruncStart": -1, "StrTruncLen": 3)", "truncation-empty",
         "StrTruncStart", ""},
        {R"("StrTruncEnable": 1, "StrTruncStart": 0, "StrTruncLen": 0)", "truncation-empty",
         "StrTruncLen", ""},
        {R"("SubParamStr": "Lot", "IsCustomEdit": 1, "StrTruncEnable": 1, "StrTruncStart": 3, "StrTruncLen": 1)",
         "truncation-empty", "StrTruncStart", ""},
        // Escapes that stay as typed, and keys.
        {R"("StrSuffix": "\\r\\n")", "literal-escape", "StrSuffix", ""},
        {R"("SubParamStr": "a\\nb", "IsCustomEdit": 1)", "literal-escape", "SubParamStr", ""},
        {kArray +
             R"({"SubParamStr": "1:cam:b:*:%d", "Separator": "\\r\\n", "ShowValue_CN": "", "ShowValue_EN": ""}])",
         "literal-escape", "Separator", "1"},
        {R"("StrPerfix": "")", "unknown-key", "StrPerfix", ""},
        {R"("convertType": 3)", "key-case", "convertType", ""},
        {R"("ParamName": "v", "ParamName": "w")", "duplicate-key", "ParamName", ""},
        {kArray +
             R"({"SubParamStr": "1:cam:b:*:%d", "Separator": "", "ShowValue_CN": "", "ShowValue_EN": ""}], "IsCustomEdit": 0)",
         "key-not-read", "IsCustomEdit", ""},
        {R"("Array": "none")", "array-not-list", "Array", ""},
        // What works as meant gives no warning.
        {R"("SubParamStr": "1:cam:v:*:%05d")", "", "", ""},
        {R"("SubParamStr": "1:cam:v:3:%8.3f")", "", "", ""},
        {R"("SubParamStr": "1:cam:v:*:%.2f", "ConvertType": 2)", "", "", ""},
        {R"("SubParamStr": "1:cam:v:*:%s", "ConvertType": 1)", "", "", ""},
        {R"("SubParamStr": "\\r", "StrTruncEnable": 1, "StrTruncStart": 0, "StrTruncLen": 1)", "",
         "", ""},
        {R"("StrSuffix": "\r\n", "StrDelete": "-")", "", "", ""},
        {kArray +
             R"({"SubParamStr": "1:cam:b:*:%s", "Separator": ";", "ShowValue_CN": "", "ShowValue_EN": ""}])",
         "", "", ""},
    };
    for (const auto& c : cases) {
        const std::string text = Build(c[0]);
        const auto warnings = LintOf(text);
        std::string got;
        for (const auto& w : warnings) got += FindingText(w) + "\n";
        if (c[1].empty()) {
            EXPECT_TRUE(warnings.empty()) << c[0] << "\n" << got;
            continue;
        }
        ASSERT_EQ(warnings.size(), 1u) << c[0] << "\n" << got;
        const auto& w = warnings[0];
        const RuleEntry* rule = FindRule(c[1]);
        ASSERT_NE(rule, nullptr) << c[1];
        EXPECT_STREQ(RuleOf(w.rule).id, rule->id) << c[0];
        // A finding that fails every run names the status it fails with.
        EXPECT_EQ(w.status != 0, rule->level == Level::kError) << c[0];
        EXPECT_EQ(w.at.key, c[2]) << c[0];
        EXPECT_EQ(w.at.row, 0) << c[0];
        EXPECT_EQ(w.at.element, c[3].empty() ? -1 : std::stoi(c[3])) << c[0];
        EXPECT_FALSE(w.message.empty() || w.fix.empty()) << c[0];
    }
    // Top level: a joined output without a name, and no rows.
    const std::string concat =
        R"({"ModuleName": "m", "StrConcateEnable": 1, "ParamName": "", "SubParamList": []})";
    const auto top = LintOf(concat);
    ASSERT_EQ(top.size(), 2u);
    EXPECT_EQ(top[0].rule, Rule::kEmptyName);
    EXPECT_EQ(top[0].at.row, -1);
    EXPECT_EQ(top[1].rule, Rule::kNoItems);
    EXPECT_EQ(top[1].status, kStatusNoItems);
    EXPECT_TRUE(LintOf("{not json").empty());
}

// What the lint says a format text does, against what the formatters give.
TEST(Lint, SaysWhatTheFormattersDo) {
    const struct {
        const char* format;
        const char* claim;  // a text the warning must hold
        float value;
        const char* result;
    } cases[] = {
        {"%+5d", "pads with zeros", 42, "00042"},
        {"% 5d", "pads with zeros", 42, "00042"},
        {"%#8d", "not padded", 42, "42"},
        {"%-5d", "not padded", 42, "42"},
        {"%3.0f", "2.5 gives \"002.\"", 2.5f, "002."},
        {"%1.0f", "3.5 gives \"3.\"", 3.5f, "3."},
        {"%.2f", "12.3456 gives \"12.\"", 12.3456f, "12."},
        {"%8x", "signed decimal", 255, "00000255"},
    };
    for (const auto& c : cases) {
        const std::string format = c.format;
        const auto warnings = LintOf(Build(R"("SubParamStr": "1:cam:v:*:)" + format + "\""));
        std::string said;
        for (const auto& w : warnings) said += w.message + "\n";
        EXPECT_NE(said.find(c.claim), std::string::npos) << c.format << ": " << said;
        const bool isFloat = format.back() == 'f';
        const std::string got =
            isFloat ? createFormatter<float>(c.value, format, "")->format()
                    : createFormatter<int>(static_cast<int>(c.value), format, "")->format();
        EXPECT_EQ(got, c.result) << c.format;
    }
}

}  // namespace
}  // namespace formatv2
