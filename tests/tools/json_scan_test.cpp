// Where check places a configuration's JSON mistakes and what it calls them, and the loose
// JSON that the module's reader accepts though it is not JSON or not read as written.
#include <gtest/gtest.h>

#include <string>

#include "contract/contract.h"
#include "tools/runner/base/json_scan.h"
#include "tools/runner/check/check.h"

namespace {

TEST(JsonScan, SyntaxErrorsArePlacedAndWorded) {
    const struct {
        std::string text;
        size_t line, column;
        const char* words;
    } cases[] = {
        {"{\n \"a\": 0,,\n \"b\": 1}", 2, 9, "a second ','"},
        {"{]", 1, 2, "unexpected ']' where a key or '}' should be"},
        {"{,", 1, 2, "unexpected ',' where a key or '}' should be"},
        {"{\"a\": \"abc,\n \"b\": 1}", 1, 7, "a text is left open"},
        {"{\"a\": \"abc", 1, 7, "a text is left open"},
        {R"({"a": "\u00e9 \uDC00"})", 1, 15, "without its first half"},
        {R"({"a": "\u12"})", 1, 8, "four hexadecimal digits"},
        {R"({"a": "\q"})", 1, 8, "unknown escape '\\q'"},
        {R"({"a": 0.3e})", 1, 7, "malformed number '0.3e': an exponent needs digits"},
        {R"({"a": 0x1F})", 1, 7, "malformed number '0x1F'"},
        {R"({"a": 1 "b": 2})", 1, 9, "a comma is missing before '\"'"},
        {"[1, 2]", 1, 1, "the top level is not an object"},
        {"{\"a\": \xC3\xA9}", 1, 7, "unexpected '\xC3\xA9' where a value should be"},
        {R"({"a": 1,})", 1, 8, "a comma before '}'"},
        {R"({"a": 'x'})", 1, 7, "JSON texts use double quotes"},
        {R"({"a": yes})", 1, 7, "the only bare words are true, false and null"},
        {R"({"a" 1})", 1, 6, "':' after the key \"a\""},
        {"{\"a\": [1, 2", 1, 12, "the text ends early: a closing ']' is missing"},
        {"{\"a\": [1}", 1, 9, "the brackets do not match"},
        {" \n ", 2, 2, "the text is empty"},
    };
    for (const auto& c : cases) {
        const auto v = preview::Examine(kStatusConfigRefused, c.text);
        ASSERT_EQ(v.refusals.size(), 1u) << c.text;
        const preview::Refusal& r = v.refusals[0];
        EXPECT_TRUE(r.stops);
        EXPECT_EQ(r.place.line, c.line) << c.text << ": " << r.message;
        EXPECT_EQ(r.place.column, c.column) << c.text << ": " << r.message;
        EXPECT_NE(r.message.find(c.words), std::string::npos) << c.text << ": " << r.message;
    }
}

TEST(JsonScan, LooseJsonIsFlaggedWhereItStands) {
    const struct {
        std::string text;
        const char* rule;
        size_t column;
    } cases[] = {
        {R"({"a": "<\uqqqq>"})", "escape-nul", 9},
        {R"({"a": "\u0000"})", "escape-nul", 8},
        {R"({"a": 012})", "loose-number", 7},
        {"\xEF\xBB\xBF{\"a\": 012}", "loose-number", 7},  // a byte order mark takes no column
        {R"({"a": 1.})", "loose-number", 7},
        {R"({"a": -.5})", "loose-number", 7},
        {"{\"a\": \"x\ty\"}", "raw-control", 9},
        {"{\"a\": \"x\ny\"}", "raw-control", 9},
        {std::string("{\"a\": 1}\0{", 10), "text-after-nul", 9},
        {R"({"a": 1} x)", "trailing-text", 10},
        {"{\"a\":\f1}", "control-character", 6},
        {R"({"a": 1.5e3, "b": "\u00e9\ud83d\ude00"})", "", 0},
    };
    for (const auto& c : cases) {
        auto v = preview::Examine(0, c.text);
        EXPECT_TRUE(v.refusals.empty());
        // "a" is no key of a configuration, and the reader refuses what the test's module is
        // said to accept.
        preview::Disable(v, {preview::Rule::kUnknownKey, preview::Rule::kVerdictsDiffer});
        if (c.rule[0] == '\0') {
            EXPECT_TRUE(v.warnings.empty()) << c.text;
            continue;
        }
        ASSERT_EQ(v.warnings.size(), 1u) << c.text;
        EXPECT_STREQ(preview::RuleOf(v.warnings[0].rule).id, c.rule) << c.text;
        EXPECT_EQ(v.warnings[0].place.column, c.column) << c.text << ": " << v.warnings[0].message;
    }
}

size_t Characters(const std::string& text) {
    size_t n = 0;
    for (char c : text) n += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    return n;
}

// The source line under a finding: a byte order mark takes no column, and a long line shows a
// window around the caret, cut between characters, with the caret still under its character.
TEST(JsonScan, ExcerptsPointAtTheColumn) {
    const std::string bom = "\xEF\xBB\xBF";
    std::string wide = "{\"a\": \"";
    for (int i = 0; i < 100; ++i) wide += "\xE5\x80\xBC";  // one character, three bytes
    wide += "\", \"b\": x, \"c\": \"" + std::string(100, 'y') + "\"}";
    const struct {
        std::string text;
        size_t line, column;
        std::string excerpt;  // "" for the long line, checked below
    } cases[] = {
        {"{\"a\": x}", 1, 7, "     1 | {\"a\": x}\n       |       ^\n"},
        {bom + "{\"a\": x}", 1, 7, "     1 | {\"a\": x}\n       |       ^\n"},
        {"{\n\t\"a\": x}", 2, 7, "     2 |  \"a\": x}\n       |       ^\n"},
        {wide, 1, 116, ""},
    };
    for (const auto& c : cases) {
        const size_t offset = c.text.find('x');
        const preview::TextPlace place = preview::PlaceOf(c.text, offset);
        EXPECT_EQ(place.line, c.line) << c.text;
        EXPECT_EQ(place.column, c.column) << c.text;
        const std::string excerpt = preview::SourceExcerpt(c.text, offset);
        if (!c.excerpt.empty()) {
            EXPECT_EQ(excerpt, c.excerpt);
            continue;
        }
        const std::string shown = excerpt.substr(9, excerpt.find('\n') - 9);
        const std::string caret = excerpt.substr(excerpt.find('\n') + 10);
        EXPECT_EQ(shown.compare(0, 3, "..."), 0) << shown;
        EXPECT_EQ(shown.compare(shown.size() - 3, 3, "..."), 0) << shown;
        EXPECT_EQ(Characters(shown), preview::kExcerptWidth + 6) << shown;
        EXPECT_EQ(caret.find('^'), Characters(shown.substr(0, shown.find('x')))) << excerpt;
    }
}

}  // namespace
