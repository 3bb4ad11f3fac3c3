// Whole runs through the module's Process: what reaches the output frame, the display texts,
// the host's result manager and the log, on success and on every way a run can fail.
#include <time.h>

#include <functional>

#include "tests/formatv2/run_fixture.h"

using fv2test::Config;
using fv2test::Describe;
using fv2test::Row;
using Strings = std::vector<std::string>;

namespace {
constexpr int kErr = LOG_LEVEL_ERR;
}

class ProcessTest : public fv2test::RunTest {};

// Values go to positions 0, 1, ... of each item's list, counted afresh for each item; an
// existing list is overwritten in place. Records cut long names, the tables do not.
TEST_F(ProcessTest, ItemModePublishesEveryItemUnderItsOwnName) {
    const std::string longName(60, 'L');
    ASSERT_EQ(Load(Config({Row("A", "1:a:p:*:%d", 1), Row("B", "1:a:q:0:%s"),
                           Row(longName, "1:a:r:*:%f", 2)})),
              0);
    Feed(0, std::vector<int>{3, 4});
    Feed(1, Strings{"x"});
    Feed(2, std::vector<float>{});
    out.frame->IntListTable["A"] = {0, 0, 9};
    out.frame->StringListTable["B"] = {"p", "q"};
    ASSERT_EQ(Run(), 0);
    EXPECT_EQ(out.frame->IntListTable["A"], (std::vector<int>{3, 4, 9}));
    EXPECT_EQ(out.frame->StringListTable["B"], (Strings{"x", "q"}));
    EXPECT_EQ(out.frame->FloatListTable.count(longName), 0u);
    EXPECT_EQ(Pubs(), (Strings{"A:int", "B:string", longName.substr(0, 47) + ":float"}));
    EXPECT_EQ(M().ShowTextEN, "\nA:3 4 \nB:x \n" + longName + ":");
    EXPECT_EQ(M().ShowTextCN, M().ShowTextEN);
    EXPECT_EQ(Shown(), M().ShowTextEN);
    EXPECT_EQ(out.frame->StringTable["SINGLE_show_text_cn"], M().ShowTextCN);
}

TEST_F(ProcessTest, ConcatenationModePublishesOneJoinedText) {
    ASSERT_EQ(Load(Config({Row("A", "1:a:p:0:%s"), Row("B", "1:a:q:0:%s")}, 1, "all")), 0);
    Feed(0, Strings{"x"});
    Feed(1, Strings{"y"});
    ASSERT_EQ(Run(), 0);
    out.frame = std::make_shared<CScFrame>();
    ASSERT_EQ(Run(), 0);  // each run joins afresh
    EXPECT_EQ(out.frame->StringTable["all"], "xy");
    EXPECT_TRUE(out.frame->StringListTable.empty());
    EXPECT_EQ(Pubs(), (Strings{"A:string", "B:string", "all:string"}));
    EXPECT_EQ(Shown(), "\nall:xy");
}

TEST_F(ProcessTest, ArrayRowsInBothOutputModes) {
    for (int concat : {0, 1}) {
        SCOPED_TRACE(concat);
        ASSERT_EQ(
            Load(Config({fv2test::ArrayRow("arr", {{"1:a:p:*:%d", ","}, {"1:a:q:*:%d", ";"}})},
                        concat)),
            0);
        out.frame = std::make_shared<CScFrame>();
        Feed(0, std::vector<int>{1, 2, 3});
        Feed(1, std::vector<int>{7, 8});
        ASSERT_EQ(Run(), 0);
        const std::string got =
            concat ? out.frame->StringTable["all"] : out.frame->StringListTable["arr"].at(0);
        EXPECT_EQ(got, "1,7;2,8;3,");
    }
}

// Custom texts and symbols take no input; arrays take one per field, in field order.
TEST_F(ProcessTest, InputPositionsFollowSubscriptionsAcrossItemKinds) {
    ASSERT_EQ(Load(Config({Row("c", "hi", 3, 1), Row("s1", "1:a:p:0:%d", 1), Row("crlf", "\\r\\n"),
                           Row("cr", "\\r"),
                           fv2test::ArrayRow("arr", {{"1:a:q:*:%d", "/"}, {"1:a:r:*:%s", "|"}}),
                           Row("s2", "1:a:t:*:%f", 2)})),
              0);
    Feed(0, std::vector<int>{10});
    Feed(1, std::vector<int>{20});
    Feed(2, Strings{"u"});
    Feed(3, std::vector<float>{1.5f});
    ASSERT_EQ(Run(), 0);
    EXPECT_EQ(out.frame->IntListTable["s1"], std::vector<int>{10});
    EXPECT_EQ(out.frame->StringListTable["arr"], Strings{"20/u"});
    EXPECT_EQ(out.frame->FloatListTable["s2"], std::vector<float>{1.5f});
    EXPECT_EQ(out.frame->StringListTable["cr"], Strings{"\r"});
    // A lone carriage return is published but not displayed; CR LF is displayed.
    EXPECT_EQ(Shown(), "\nc:hi \ns1:10 \ncrlf:\r\n \ncr:\narr:20/u \ns2:1.5 ");
}

// A first run succeeds (a=1, b=2, c="z"); the second, fed a=11, b=12, c="y", is spoilt by
// one fault and must leave exactly the stated state behind.
TEST_F(ProcessTest, EveryFailureLeavesItsStatedState) {
    struct Case {
        const char* name;
        std::function<void()> spoil;
        int status;
        Strings values;     // the items' Values after the failing run
        Strings pubs;       // what the failing run listed in its output frame
        std::string shown;  // its display text
        std::string err;    // an Err line that must appear
        int errLine;        // ... with this line number (0: any)
    };
    const std::string afterFirst = "\na:1 \nb:2 \nc:z ";
    // clang-format off
    const std::vector<Case> cases = {
        {"input not resolvable", [&] { in.inputs.erase("input1"); }, int(0xC0000004),
         {"i:11", "-", "s:z"}, {}, "", "get subsribe[input1] int data err.", 0},
        {"host getter fails", [&] { standin::FailCall(standin::Call::kGetIntDynamic, 9); },
         int(0xC0000004), {"-", "i:2", "s:z"}, {}, "", "[Process] occur error:(0xc0000004)", 529},
        {"index holds no number", [&] { Item(1).SubParam.index = "x"; }, int(0xC0000004),
         {"i:11", "-", "s:z"}, {}, "", "Sunscribe data [input1], index [x]", 0},
        {"no image mode", [&] { in.frame->IntTable.clear(), M().ImgMode = 7; }, -1,
         {"i:1", "i:2", "s:z"}, {}, "", "[Process] occur error:(0xffffffff)", 499},
        {"no input frame", [&] { in.frame = nullptr; }, int(0xE000000A),
         {"i:1", "i:2", "s:z"}, {}, afterFirst, "[Process] occur error(0xe000000a)", 490},
        {"empty item list", [&] { M().SubParamList.clear(); }, int(0xC0000109), {}, {}, "", "", 0},
        {"value never assembled", [&] { Item(1).SubParam.type = "%X", Item(1).Value.reset(); },
         int(0xE000001C), {"i:11", "-", "s:y"}, {"a:int"}, "\na:11 \nb:", "Unknown value type.", 708},
        {"value not convertible",
         [&] { Item(2).ConvertType = FORMAT_V2_VARIATE_INT, Feed(2, Strings{"abc"}); },
         int(0xC0000221), {"i:11", "i:12", "s:abc"}, {"a:int", "b:int"}, "\na:11 \nb:12 \nc:",
         "[CombineSubOutputValue] occur error:(0xc0000221)", 702},
        {"unknown kind republishes its last value", [&] { Item(2).DataType = FORMAT_V2_DATA_TYPE(0); },
         0, {"i:11", "i:12", "s:z"}, {"a:int", "b:int", "c:string"}, "\na:11 \nb:12 \nc:z ",
         "No such data format 0", 525},
        {"unknown kind without a value",
         [&] { Item(2).DataType = FORMAT_V2_DATA_TYPE(5), Item(2).Value.reset(); },
         int(0xE000001C), {"i:11", "i:12", "-"}, {"a:int", "b:int"}, "\na:11 \nb:12 \nc:",
         "No such data format 5", 525},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        standin::Reset();
        in = {};
        in.frame = std::make_shared<CScFrame>();
        in.frame->IntTable["SINGLE_img_mode"] = 0;
        ASSERT_EQ(Load(Config({Row("a", "1:a:p:0:%d", 1), Row("b", "1:a:q:0:%d", 1),
                               Row("c", "1:a:r:0:%s")})),
                  0);
        Feed(0, std::vector<int>{1});
        Feed(1, std::vector<int>{2});
        Feed(2, Strings{"z"});
        ASSERT_EQ(Run(), 0);
        Feed(0, std::vector<int>{11});
        Feed(1, std::vector<int>{12, 13});
        Feed(2, Strings{"y"});
        out.frame = std::make_shared<CScFrame>();
        fv2test::Logs().clear();
        c.spoil();

        EXPECT_EQ(Run(), c.status);
        Strings values;
        for (const DataSection& item : M().SubParamList) values.push_back(Describe(item.Value));
        EXPECT_EQ(values, c.values);
        EXPECT_EQ(Pubs(), c.pubs);
        EXPECT_EQ(Shown(), c.shown);
        EXPECT_EQ(out.frame->StringTable["SINGLE_show_text_cn"], c.shown);
        if (!c.err.empty()) {
            EXPECT_EQ(Count(kErr, c.err, c.errLine), 1);
        }
        const int processLine =
            c.status == 0 || c.errLine == 499 || c.errLine == 490 || c.status == int(0xC0000109) ? 0
            : c.pubs.empty() ? 529
                             : 533;
        if (processLine) {
            EXPECT_EQ(Count(kErr, "[Process] occur error:", processLine), 1);
        }
        EXPECT_EQ(Count(LOG_LEVEL_INFO,
                        "formatv2 Process end, status : " + std::to_string(c.status) + "\n", 536),
                  1);
        EXPECT_EQ(out.frame->StringTable["SINGLE_param_status_string"], c.status ? "NG" : "OK");
        EXPECT_EQ(standin::UpProcessTimeCalls(), 2);
    }
}

static double NowMillis() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec * 1000LL + (now.tv_nsec + 500000) / 1000000);
}

// The start is stamped (and the image mode read) only in a run that has an input frame.
TEST_F(ProcessTest, StartTimeAndImageModeOfARun) {
    ASSERT_EQ(Load(Config({Row("c", "t", 3, 1)})), 0);
    in.frame->IntTable["SINGLE_img_mode"] = 3;
    M().ProcTime = 77;
    const double before = NowMillis();
    ASSERT_EQ(Run(), 0);
    EXPECT_GE(M().ProcStartTime, before);
    EXPECT_LE(M().ProcStartTime, NowMillis());
    EXPECT_EQ(M().ProcTime, 0);
    in.frame->IntTable.clear();
    EXPECT_EQ(Run(), -1);
    EXPECT_EQ(M().ImgMode, 3);
    M().ProcStartTime = -5;
    in.frame = nullptr;
    EXPECT_EQ(Run(), int(0xE000000A));
    EXPECT_EQ(M().ProcStartTime, -5);
    EXPECT_EQ(standin::UpProcessTimeCalls(), 3);
}

TEST_F(ProcessTest, ResultEntriesAndNotices) {
    struct Case {
        int imgMode;
        bool fail;
        int addResultInfo;  // expected AddResultInfo(1, 1) calls
    } cases[] = {{0, false, 1}, {3, false, 0}, {0, true, 0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.imgMode + 10 * c.fail);
        out.frame = std::make_shared<CScFrame>();
        ASSERT_EQ(Load(Config({Row("a", "1:a:p:0:%d", 1)})), 0);
        standin::Reset();
        in.inputs.clear();
        if (!c.fail) Feed(0, std::vector<int>{1});
        in.frame->IntTable["SINGLE_img_mode"] = c.imgMode;
        const int status = Run();
        ASSERT_EQ(status != 0, c.fail);
        CScFrame& f = *out.frame;
        const int ok = c.fail ? 0 : 1;
        EXPECT_EQ(f.IntTable["SINGLE_status"], ok);
        EXPECT_EQ(f.IntTable["SINGLE_param_status"], ok);
        EXPECT_EQ(f.StringTable["SINGLE_param_status_string"], c.fail ? "NG" : "OK");
        for (const char* k : {"SINGLE_show_text_x", "SINGLE_show_text_y", "SINGLE_show_text_ang"}) {
            EXPECT_EQ(f.FloatTable.at(k), 0.0f);
        }
        const auto& calls = standin::ResultCalls();
        ASSERT_EQ(calls.size(), 1u + c.addResultInfo);
        if (c.addResultInfo) {
            EXPECT_EQ(calls[0].op + std::to_string(calls[0].a) + std::to_string(calls[0].b),
                      "AddResultInfo11");
        }
        const standin::ResultCall& n = calls.back();
        EXPECT_EQ(n.op, "SendResultInfoExist");
        EXPECT_EQ(n.a, ok);
        EXPECT_EQ(n.b, 0);
        EXPECT_EQ(n.textCn, "全部输出为OK");
        EXPECT_EQ(n.textEn, "Full output is OK");
        EXPECT_EQ(n.frame, out.frame);
    }
}

TEST_F(ProcessTest, RefusedResultInfoIsLoggedAndTheRunStaysOk) {
    ASSERT_EQ(Load(Config({Row("c", "t", 3, 1)})), 0);
    standin::FailCall(standin::Call::kAddResultInfo, 0x55);
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(Count(kErr, "add result info failed, nErrCode = 0x55\n", 776), 1);
    EXPECT_EQ(out.frame->StringTable["SINGLE_param_status_string"], "OK");
}

TEST_F(ProcessTest, LogLinesCarryTheirLayoutAndLineNumbers) {
    ASSERT_EQ(Load(Config({Row("c", "t", 3, 1)})), 0);
    ASSERT_EQ(Run(), 0);
    in.frame = nullptr;
    ASSERT_EQ(Run(), int(0xE000000A));
    Strings lines;
    for (const auto& l : fv2test::Logs()) {
        if (l.text.find("Process") != std::string::npos ||
            l.text.find("send output") != std::string::npos)
            lines.push_back(l.text);
    }
    EXPECT_EQ(lines,
              (Strings{
                  "| Info | 005formatv2 | formatv2.cpp:0496: formatv2 Process start\n",
                  "| Info | 005formatv2 | formatv2.cpp:0536: formatv2 Process end, status : 0\n",
                  "| Info | 005formatv2 | formatv2.cpp:0794: send output param end\n",
                  "\033[31m| Err  | 005formatv2 | formatv2.cpp:0490: [Process] occur "
                  "error(0xe000000a)\r\n\033[0m",
                  "| Info | 005formatv2 | formatv2.cpp:0536: formatv2 Process end, status : "
                  "-536870902\n",
                  "| Info | 005formatv2 | formatv2.cpp:0794: send output param end\n",
              }));
}

// After a read that failed part-way the item list is longer than the subscription table;
// an input past the table is never resolved, even when the host would know its name.
TEST_F(ProcessTest, InputsPastTheSubscriptionTableAreNotResolved) {
    ASSERT_EQ(Load(Config({Row("a", "1:a:p:0:%d", 1)})), 0);
    ASSERT_EQ(
        Load(Config({Row("a", "1:a:p:0:%d", 1), Row("b", "1:a:q:0:%d", 1), Row("bad", "x", 9)})),
        int(0xC0000105));
    ASSERT_EQ(M().SubParamList.size(), 2u);
    Feed(0, std::vector<int>{1});
    Feed(1, std::vector<int>{2});
    EXPECT_EQ(Run(), int(0xC0000004));
    EXPECT_EQ(Count(kErr, "get subsribe[] int data err."), 1);
}

// Without an output frame a joined text is still built; an item's own output cannot be sent.
TEST_F(ProcessTest, NullOutputFrameIsNeverWritten) {
    for (int concat : {1, 0}) {
        SCOPED_TRACE(concat);
        ASSERT_EQ(
            Load(Config({Row("a", "1:a:p:0:%d", concat ? 3 : 1), Row("c", "t", 3, 1)}, concat)), 0);
        Feed(0, std::vector<int>{1});
        out.frame = nullptr;
        fv2test::Logs().clear();
        EXPECT_EQ(Run(), concat ? 0 : int(0xC0000221));
        EXPECT_EQ(M().ConcatText, concat ? "1t" : "");
        EXPECT_EQ(Count(kErr, "[CombineSubOutputValue] occur error:(0xc0000221)", 682), !concat);
        EXPECT_EQ(standin::ResultCalls().back().frame, nullptr);
        EXPECT_EQ(standin::ResultCalls().back().a, concat);
    }
}
