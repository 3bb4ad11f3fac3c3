// What a recorded run tells of itself: which row, field and element wrote each byte of every
// published text and display text, through cuts, decorations and deletions, and why a row gave
// no values.
#include "support/fixture.h"

using namespace fv2test;

namespace {

class RunResult : public Fixture {
  protected:
    void SetUp() override {
        Fixture::SetUp();
        m->RecordRuns(true);
    }
    // The text an entry tells of, as the run published it.
    std::string TextOf(const formatv2::TextProvenance& t) {
        if (t.output == "show_text_en") return Shown();
        if (t.output == "show_text_cn") return out.frame->StringTable["SINGLE_show_text_cn"];
        auto list = out.frame->StringListTable.find(t.output);
        if (list != out.frame->StringListTable.end()) return list->second.at(t.value);
        return out.frame->StringTable.at(t.output);
    }
    // Every entry's spans, checked to cover its text once, in order, as
    // "output[value]: [bytes]owner ..." with owners as r0f1e2 (- for none).
    std::string Told() {
        std::string all;
        for (const formatv2::TextProvenance& t : m->LastRun()->texts) {
            const std::string text = TextOf(t);
            size_t at = 0;
            all += t.output + "[" + std::to_string(t.value) + "]:";
            for (const formatv2::Span& s : t.spans) {
                EXPECT_EQ(s.begin, at) << t.output;
                EXPECT_LT(s.begin, s.end) << t.output;
                at = s.end;
                const formatv2::Owner& o = s.owner;
                std::string owner = o.row < 0 ? "-" : "r" + std::to_string(o.row);
                if (o.field >= 0) owner += "f" + std::to_string(o.field);
                if (o.element >= 0) owner += "e" + std::to_string(o.element);
                all += " [" + text.substr(s.begin, s.end - s.begin) + "]" + owner;
            }
            EXPECT_EQ(at, text.size()) << t.output;
            all += "\n";
        }
        return all;
    }
};

std::string Decorated(const std::string& name, const std::string& text, const std::string& keys) {
    return Row(name, text, 3, 0, keys);
}

}  // namespace

// Decorations belong to their row but to no element; a deletion across a prefix and a value
// takes bytes of both; a cut keeps the element's bytes; separators go with their cells, a cell
// past its field's list is of no element; the label of the joined text is of no row.
TEST_F(RunResult, EveryByteIsToldItsRowFieldAndElement) {
    const struct {
        const char* name;
        int concat;
        std::vector<std::string> rows;
        std::string told;
    } cases[] = {
        {"decorated list",
         0,
         {Decorated("A", "1:a:p:*:%s", R"("StrPrefix":"<","StrSuffix":">","StrDelete":"b",)")},
         "A[0]: [<]r0 [a]r0e0 [>]r0\nA[1]: [<]r0 [cde]r0e1 [>]r0\n"
         "show_text_en[0]: [\nA:<]r0 [a]r0e0 [> <]r0 [cde]r0e1 [> ]r0\n"
         "show_text_cn[0]: [\nA:<]r0 [a]r0e0 [> <]r0 [cde]r0e1 [> ]r0\n"},
        {"cut and deleted across the prefix",
         0,
         {Decorated(
             "B", "1:a:p:1:%s",
             R"("StrTruncEnable":1,"StrTruncStart":1,"StrTruncLen":2,"StrPrefix":"px","StrDelete":"xd",)")},
         "B[0]: [p]r0 [e]r0e1\n"
         "show_text_en[0]: [\nB:p]r0 [e ]r0e1\nshow_text_cn[0]: [\nB:p]r0 [e ]r0e1\n"},
        {"joined, with a fixed text and an array",
         1,
         {Row("c", "hi", 3, 1), ArrayRow("arr", {{"1:a:p:*:%s", ","}, {"1:a:q:*:%d", ";"}})},
         "all[0]: [hi]r0 [ab,]r1f0e0 [7;]r1f1e0 [cd,]r1f0e1\n"
         "show_text_en[0]: [\nall:]- [hi]r0 [ab,]r1f0e0 [7;]r1f1e0 [cd,]r1f0e1\n"
         "show_text_cn[0]: [\nall:]- [hi]r0 [ab,]r1f0e0 [7;]r1f1e0 [cd,]r1f0e1\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_EQ(Load(Config(c.rows, c.concat)), 0);
        Feed(0, Strings{"ab", c.concat ? "cd" : "cde"});
        Feed(1, Ints{7});
        out.frame = std::make_shared<CScFrame>();
        ASSERT_EQ(Run(), 0);
        EXPECT_EQ(Told(), c.told);
    }
}

// A failed row says what it asked of which input and what came; the rows after it are not
// reached, and nothing is recorded when no caller asked.
TEST_F(RunResult, AFailedRowSaysWhatItAskedAndWhatCame) {
    const struct {
        const char* name;
        std::string subscription;
        int convert;
        std::string told;  // step input source index expected came length value
    } cases[] = {
        {"wrong type", "1:a:p:*:%d", 1, "read input0 a:p * int string list of 2 -1 "},
        {"index past the end", "1:a:p:5:%s", 3, "read input0 a:p 5 string string list of 2 2 "},
        {"not convertible", "1:a:p:*:%s", 1, "convert    int  -1 ab"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_EQ(Load(Config({Row("v", c.subscription, c.convert), Row("c", "hi", 3, 1)})), 0);
        Feed(0, Strings{"ab", "cd"});
        EXPECT_NE(Run(), 0);
        const formatv2::RunResult& r = *m->LastRun();
        ASSERT_EQ(r.rows.size(), 2u);
        EXPECT_EQ(r.rows[0].outcome, formatv2::RowOutcome::kFailed);
        EXPECT_EQ(r.rows[1].outcome, formatv2::RowOutcome::kNotReached);
        const formatv2::RowFailure& w = r.rows[0].failure;
        EXPECT_EQ(w.name, "v");
        EXPECT_EQ(w.step + " " + w.input + " " + w.source + " " + w.index + " " + w.expected + " " +
                      w.came + " " + std::to_string(w.length) + " " + w.value,
                  c.told);
    }
    m->RecordRuns(false);
    Run();
    EXPECT_EQ(m->LastRun(), nullptr);
}
