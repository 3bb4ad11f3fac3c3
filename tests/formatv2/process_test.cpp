// Whole runs through the module's Process: what reaches the output frame, the display texts,
// the host's result manager and the log, on success and on every way a run can fail.
#include <functional>
#include <map>

#include "publish/dynamic_pub.h"
#include "support/fixture.h"

using namespace fv2test;
using standin::FailCall;

namespace {

class Process : public Fixture {
  protected:
    // The items' Values, then the output frame's "DynamicPub" records as "name:type".
    std::string Values() {
        std::string all;
        for (const DataSection& item : m->SubParamList) all += Describe(item.Value) + " ";
        return all;
    }
    std::string Records() {
        std::string all;
        auto* list = out.frame->getData<DynamicPubRecords>("DynamicPub", false);
        for (const DynamicPub& p : list ? *list : DynamicPubRecords{})
            all += std::string(p.param_name) + ":" + p.type + " ";
        return all;
    }
    // The verdict entries and both display texts of the output frame.
    std::string Entries() {
        CScFrame& f = *out.frame;
        return std::to_string(f.IntTable["SINGLE_status"]) +
               std::to_string(f.IntTable["SINGLE_param_status"]) +
               f.StringTable["SINGLE_param_status_string"] + "|" + Shown() + "|" +
               f.StringTable["SINGLE_show_text_cn"];
    }
    // The output frame's list tables by name, as "A=i:3,4 B=s:x ".
    std::string Lists() {
        std::map<std::string, std::string> all;
        for (const auto& [key, list] : out.frame->IntListTable) all[key] = Describe(list);
        for (const auto& [key, list] : out.frame->FloatListTable) all[key] = Describe(list);
        for (const auto& [key, list] : out.frame->StringListTable) all[key] = Describe(list);
        std::string text;
        for (const auto& [key, list] : all) text += key + "=" + list + " ";
        return text;
    }
};

}  // namespace

// Both output modes over every item kind, each run afresh ("Array" that is no list is no
// array). Custom texts and symbols take no input, arrays one per field. Values go to positions 0,
// 1, ... of an item's list, overwriting it in place; a lone CR is published but not displayed;
// records cut long names.
TEST_F(Process, BothOutputModesOverEveryItemKind) {
    const std::string name(60, 'L'), cut = name.substr(0, 47);
    for (int concat : {0, 1}) {
        SCOPED_TRACE(concat);
        const int i = concat ? 3 : 1, f = concat ? 3 : 2;
        ASSERT_EQ(Load(Config({Row("c", "hi", 3, 1, R"("Array":"no",)"), Row("A", "1:a:p:*:%d", i),
                               Row("crlf", "\\r\\n"), Row("cr", "\\r"),
                               Row("typed", "\\r\\n", 3, 1), Row("B", "1:a:q:0:%s"),
                               ArrayRow("arr", {{"1:a:r:*:%d", ","}, {"1:a:s:*:%d", ";"}}),
                               Row(name, "1:a:t:*:%f", f)},
                              concat)),
                  0);
        FeedAll(Ints{3, 4}, Strings{"x"}, Ints{1, 2, 3}, Ints{7, 8}, Floats{});
        ASSERT_EQ(Run(), 0);
        out.frame = std::make_shared<CScFrame>();
        out.frame->IntListTable["A"] = {0, 0, 9};
        out.frame->StringListTable["B"] = {"p", "q"};
        ASSERT_EQ(Run(), 0);
        EXPECT_EQ(Values(), "s:hi i:3,4 s:\r\n s:\r s:\\r\\n s:x s:1,7;2,8;3, f: ");
        const std::string shown =
            concat ? "\nall:hi34\r\n\r\\r\\nx1,7;2,8;3,"
                   : "\nc:hi \nA:3 4 \ncrlf:\r\n \ncr:\ntyped:\\r\\n \nB:x \narr:1,7;2,8;3, \n" +
                         name + ":";
        EXPECT_EQ(Entries() + "|" + m->ShowTextCN, "11OK|" + shown + "|" + shown + "|" + shown);
        EXPECT_EQ(
            Lists() + out.frame->StringTable["all"],
            concat
                ? "A=i:0,0,9 B=s:p,q hi34\r\n\r\\r\\nx1,7;2,8;3,"
                : "A=i:3,4,9 B=s:x,q arr=s:1,7;2,8;3, c=s:hi cr=s:\r crlf=s:\r\n typed=s:\\r\\n ");
        EXPECT_EQ(
            Records(),
            concat ? "c:string A:string crlf:string cr:string typed:string B:string arr:string " +
                         cut + ":string all:string "
                   : "c:string A:int crlf:string cr:string typed:string B:string arr:string " +
                         cut + ":float ");
    }
}

// A first run succeeds (a=1, b=2, c="z"); the second, fed a=11, b=12, c="y", is spoilt by
// one fault and must leave exactly the stated state behind, reported as its status says.
TEST_F(Process, EveryFailureLeavesItsStatedState) {
    auto& items = m->SubParamList;
    const Strings rows = {Row("a", "1:a:p:0:%d", 1), Row("b", "1:a:q:0:%d", 1),
                          Row("c", "1:a:r:0:%s")};
    const struct {
        std::function<void()> spoil;
        int status;
        std::string values, records, shown;  // after the failing run
        std::string err;    // an Err message that must appear once ("": no Err line at all)
        std::string lines;  // the lines logged under a line number of their own
    } cases[] = {
        // clang-format off
        {[&] { in.inputs.erase("input1"); }, int(0xC0000004), "i:11 - s:z ", "", "", "get subsribe[input1] int data err.\n",
         "0496 0529 0536 0794 "},
        {[&] { FailCall(standin::Call::kGetIntDynamic, 9); }, int(0xC0000004), "- i:2 s:z ", "", "", "get a_en output by int err\n",
         "0496 0529 0536 0794 "},
        {[&] { items[1].SubParam.index = "x"; }, int(0xC0000004), "i:11 - s:z ", "", "", "index [x] is not a number\n",
         "0496 0529 0536 0794 "},
        // A re-read that failed after a fourth item: its input lies past the table, never resolved.
        {[&] { Load(Config({rows[0], rows[1], rows[2], Row("d", "1:a:t:0:%d", 1), "{}"})), Feed(3, Ints{4}); }, int(0xC0000004),
         "i:11 i:12 s:y - ", "", "", "get subsribe[] int data err.\n", "0496 0529 0536 0794 "},
        {[&] { in.frame->IntTable.clear(); }, -1, "i:1 i:2 s:z ", "", "", "[Process] occur error:(0xffffffff)\r\n",
         "0496 0499 0536 0794 "},
        {[&] { in.frame = nullptr; }, int(0xE000000A), "i:1 i:2 s:z ", "", "\na:1 \nb:2 \nc:z ",
         "[Process] occur error(0xe000000a)\r\n", "0490 0536 0794 "},
        {[&] { items.clear(); }, int(0xC0000109), "", "", "", "", "0496 0536 0794 "},
        // A type that selects no worker, on an item that never had a Value.
        {[&] { items[1].SubParam.type = "%X", items[1].Value.reset(); }, int(0xE000001C), "i:11 - s:y ", "a:int ", "\na:11 \nb:",
         "Unknown value type.\n", "0496 0708 0533 0536 0794 "},
        {[&] { items[2].ConvertType = FORMAT_V2_VARIATE_INT, Feed(2, Strings{"abc"}); }, int(0xC0000221), "i:11 i:12 s:abc ",
         "a:int b:int ", "\na:11 \nb:12 \nc:", "[CombineSubOutputValue] occur error:(0xc0000221)\r\n", "0496 0702 0533 0536 0794 "},
        // An unknown kind publishes its last Value again, or fails without one.
        {[&] { items[2].DataType = FORMAT_V2_DATA_TYPE(0); }, 0, "i:11 i:12 s:z ", "a:int b:int c:string ", "\na:11 \nb:12 \nc:z ",
         "No such data format 0\n", "0496 0525 0536 0794 "},
        {[&] { items[2].DataType = FORMAT_V2_DATA_TYPE(5), items[2].Value.reset(); }, int(0xE000001C), "i:11 i:12 - ",
         "a:int b:int ", "\na:11 \nb:12 \nc:", "No such data format 5\n", "0496 0525 0708 0533 0536 0794 "},
        // The host refusing the result info is logged; the run stays good.
        {[&] { FailCall(standin::Call::kAddResultInfo, 0x55); }, 0, "i:11 i:12 s:y ", "a:int b:int c:string ",
         "\na:11 \nb:12 \nc:y ", "add result info failed, nErrCode = 0x55\n", "0496 0536 0776 0794 "},
        // A good run in another image mode adds no result info.
        {[&] { in.frame->IntTable["SINGLE_img_mode"] = 2; }, 0, "i:11 i:12 s:y ", "a:int b:int c:string ",
         "\na:11 \nb:12 \nc:y ", "", "0496 0536 0794 "},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.err);
        standin::Reset();
        standin::SetFsRoot(root);
        in = {};
        in.frame = std::make_shared<CScFrame>();
        in.frame->IntTable["SINGLE_img_mode"] = 0;
        ASSERT_EQ(Load(Config(rows)), 0);
        FeedAll(Ints{1}, Ints{2}, Strings{"z"});
        ASSERT_EQ(Run(), 0);
        FeedAll(Ints{11}, Ints{12, 13}, Strings{"y"});
        out.frame = std::make_shared<CScFrame>();
        m->ProcStartTime = -5, m->ProcTime = 7, m->ImgMode = 7;
        g_logs.clear();
        c.spoil();
        const bool hasMode = in.frame && in.frame->IntTable.count("SINGLE_img_mode");
        const int imgMode = hasMode ? in.frame->IntTable["SINGLE_img_mode"] : 7;  // 7: kept
        EXPECT_EQ(Run(), c.status);
        EXPECT_EQ(Values() + "|" + Records(), c.values + "|" + c.records);
        EXPECT_EQ(Entries(), (c.status ? "00NG|" : "11OK|") + c.shown + "|" + c.shown);
        EXPECT_EQ(Count(kErr, c.err), c.err.empty() ? 0 : 1);
        EXPECT_EQ(Fixed({490, 496, 499, 525, 529, 533, 536, 682, 692, 702, 708, 776, 794}, false),
                  c.lines);
        EXPECT_EQ(Count(kInfo, "formatv2 Process end, status : " + std::to_string(c.status) + "\n"),
                  1);
        // Only a run with an input frame starts: its start stamped, its time reset; the image
        // mode is kept unless the frame has one.
        EXPECT_EQ(m->ProcStartTime > 0 && m->ProcTime == 0, c.lines.rfind("0496", 0) == 0);
        EXPECT_EQ(m->ImgMode, imgMode);
        EXPECT_EQ(standin::UpProcessTimeCalls(), 2);
        // Result info for each good run in image mode 0, then the notice with the verdict.
        std::string calls;
        for (const auto& call : standin::ResultCalls())
            calls += call.op[0] + std::to_string(call.a);
        EXPECT_EQ(calls, std::string("A1S1") + (c.status || imgMode ? "" : "A1") + "S" +
                             std::to_string(c.status == 0));
    }
}

// Without an output frame a joined text is still built; an item's own output cannot be sent.
TEST_F(Process, NullOutputFrameIsNeverWritten) {
    for (int concat : {1, 0}) {
        SCOPED_TRACE(concat);
        ASSERT_EQ(
            Load(Config({Row("a", "1:a:p:0:%d", concat ? 3 : 1), Row("c", "t", 3, 1)}, concat)), 0);
        Feed(0, Ints{1});
        out.frame = nullptr;
        g_logs.clear();
        EXPECT_EQ(Run(), concat ? 0 : int(0xC0000221));
        EXPECT_EQ(m->ConcatText, concat ? "1t" : "");
        EXPECT_EQ(Count(kErr, "0682: [CombineSubOutputValue] occur error:(0xc0000221)"), !concat);
        EXPECT_EQ(standin::ResultCalls().back().frame, nullptr);
        EXPECT_EQ(standin::ResultCalls().back().a, concat);
    }
}
