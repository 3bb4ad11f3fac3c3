// The runner's UTF-8 safety: which bytes are characters, and the escapes reports write and
// scenarios read back.
#include <gtest/gtest.h>

#include "tools/runner/base/diag.h"
#include "tools/runner/render/report.h"

namespace preview {
namespace {

TEST(Utf8, InvalidBytesEscapedInTextAndJsonAndReadBack) {
    struct Case {
        std::string bytes, text, json;
    } const cases[] = {
        {"a\xc3\xa9z", "a\xc3\xa9z", "a\xc3\xa9z"},                    // é: kept
        {"\xf0\x9f\x98\x80", "\xf0\x9f\x98\x80", "\xf0\x9f\x98\x80"},  // 4 bytes: kept
        {"a\xc3", "a\\xc3", "a\\udcc3"},                               // cut after the lead byte
        {"\xe2\x82x", "\\xe2\\x82x", "\\udce2\\udc82x"},  // a 3-byte sequence cut short
        {"\xc0\xaf", "\\xc0\\xaf", "\\udcc0\\udcaf"},     // overlong '/'
        {"\xed\xa0\x80", "\\xed\\xa0\\x80", "\\udced\\udca0\\udc80"},  // a surrogate
        {"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80", "\\udcf4\\udc90\\udc80\\udc80"},  // > U+10FFFF
        {"\x80", "\\x80", "\\udc80"},  // a lone continuation byte
    };
    for (const Case& c : cases) {
        EXPECT_EQ(EscapeInvalidUtf8(c.bytes, Escape::kText), c.text) << c.text;
        EXPECT_EQ(EscapeInvalidUtf8(c.bytes, Escape::kJson), c.json) << c.text;
        EXPECT_EQ(ReadByteEscapes("[\"" + c.json + "\"]"), "[\"" + c.bytes + "\"]") << c.text;
    }
    // Only inside strings, only 80 to FF, and an escaped backslash is no escape.
    EXPECT_EQ(ReadByteEscapes(R"(["\udc7f", "\\udcc3", "\uDCC3"])"),
              "[\"\\udc7f\", \"\\\\udcc3\", \"\xc3\"]");
    EXPECT_EQ(Visible("\xc3\t\\\xc3\xa9"), "\\xc3\\t\\\\\xc3\xa9");
}

}  // namespace
}  // namespace preview
