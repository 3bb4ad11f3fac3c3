// Nothing may throw into the host. Every allocation a run or a conversion makes is made to
// fail in turn (operator new is replaced in this binary), and each such call must return a
// status. The fixture's log capture allocates too, so log calls throw as well.

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <tuple>

#include "support/alloc_counter.h"
#include "support/fixture.h"

using namespace fv2test;
using NoThrow = Fixture;

namespace {

// Calls prepare() then run() once for each allocation run() makes, that allocation failing,
// until a call needs fewer. The statuses in order; the last is that of a call with every
// allocation granted.
template <typename Prepare, typename Run, typename Check = void (*)(int)>
std::vector<int> FailEachAllocation(
    Prepare prepare, Run run, Check check = [](int) {}) {
    std::vector<int> statuses;
    for (long n = 1;; ++n) {
        prepare();
        const long before = AllocationCount();
        FailNthAllocation(n);
        int status = 0;
        EXPECT_NO_THROW(status = run()) << "allocation " << n;
        const long made = AllocationCount() - before;
        FailNthAllocation(0);
        statuses.push_back(status);
        check(status);
        if (made < n) return statuses;
    }
}

constexpr int kThrown = 1;  // a conversion that let bad_alloc through

}  // namespace

TEST_F(NoThrow, EveryAllocationFailureEndsTheRunWithAStatus) {
    for (int concat : {0, 1}) {
        ASSERT_EQ(
            Load(Config({Row("a", "1:a:p:*:%d", concat ? 3 : 1), Row("c", "\\r\\n"),
                         ArrayRow("arr", {{"1:a:q:*:%3.1f", ","}, {"1:a:r:*:%s", ";"}}),
                         Row("s", "1:a:t:0:%s", 3, 0, "\"StrPrefix\":\"<\",\"StrDelete\":\"x\",")},
                        concat)),
            0);
        FeedAll(Ints{1, 2}, Floats{1.5f, 2.5f}, Strings{"u", "v", "w"}, Strings{"xyz"});
        size_t callsBefore = 0;
        std::vector<std::string> reported;  // each run's result calls, as one text
        const auto statuses = FailEachAllocation(
            [&] {
                out.frame = std::make_shared<CScFrame>();
                g_logs.clear();
                callsBefore = standin::ResultCalls().size();
            },
            [this] { return Run(); },
            [&](int status) {  // a run ended by a throw, or a failed conversion, says so once
                EXPECT_EQ(Count(kErr, "[Process] occur error:(0xe000000a)"),
                          status == int(0xE000000A) ? 1 : 0);
                // No partial success: the verdict written and the last notice agree with the
                // status, also when writing the result entries ran out of memory.
                const auto& texts = out.frame->StringTable;
                const auto verdict = texts.find("SINGLE_param_status_string");
                EXPECT_EQ(verdict == texts.end() ? "-" : verdict->second, status ? "NG" : "OK");
                const auto calls = standin::ResultCalls();
                const auto notice = std::find_if(calls.rbegin(), calls.rend(), [](const auto& c) {
                    return c.op == "SendResultInfoExist";
                });
                EXPECT_TRUE(notice != calls.rend() && notice->a == (status == 0));
                std::string text;
                for (size_t i = callsBefore; i < calls.size(); ++i) {
                    text += calls[i].op + " " + std::to_string(calls[i].a) + " " +
                            std::to_string(calls[i].b) + " " + calls[i].textCn + "|" +
                            calls[i].textEn + "\n";
                }
                reported.push_back(text);
                int named = 0;
                for (const char* type : {"[int]", "[float]", "[string]"}) {
                    named += Count(kErr, std::string("value convert to ") + type + " failed.\n");
                }
                EXPECT_EQ(named, status == int(0xC0000221) ? 1 : 0);
            });
        EXPECT_LT(std::count(statuses.begin(), statuses.end(), 0), long(statuses.size()));
        EXPECT_EQ(statuses.back(), 0);  // and the module still works afterwards
        // A run that returns 0 reported its result once and whole, as a run with every
        // allocation granted does: none wrote part of its entries and then tried again.
        for (size_t i = 0; i < statuses.size(); ++i) {
            if (statuses[i] == 0) {
                EXPECT_EQ(reported[i], reported.back()) << "allocation " << i + 1;
            }
        }
        EXPECT_EQ(Shown(), concat ? "\nall:12\r\n001.5,u;002.5,v;,w<yz"
                                  : "\na:1 2 \nc:\r\n \narr:001.5,u;002.5,v;,w \ns:<yz ");
    }
}

// To an int or a float, any step of a conversion that runs out of memory fails the conversion
// with its code. To a text only making the text is the conversion: a failure there gives the
// code, and one in a later step (cutting, decorating, storing) propagates for the run driver to
// end the run.
TEST(ConvertOutOfMemory, ConversionFailsWithItsCodeLaterStepsThrow) {
    CFormatV2Module module;
    std::shared_ptr<CScFrame> frame;
    DataSection item;  // every text long enough to need a block of its own
    item.ParamName = "a name too long for the short string buffer";
    item.SubParam.type = "%20.3f";
    std::tie(item.StrTruncEnable, item.StrTruncLen) = std::pair(1, 30);
    item.StrPrefix = "a prefix that must be allocated ";
    item.StrSuffix = " and a suffix that must be allocated";
    item.StrDelete = "a";
    const auto check = [&](FORMAT_V2_VARIATE_TYPE type, const auto& value, int concat = 0) {
        item.ConvertType = type;
        const auto statuses = FailEachAllocation(
            [&] {
                module.StrConcateEnable = concat;
                module.ShowTextEN = "shown before ";
                module.ConcatText = "joined before ";
                frame = std::make_shared<CScFrame>();
            },
            [&] {
                try {
                    return module.ConvertAndSendOutputValue(frame, item, value, 0);
                } catch (const std::bad_alloc&) {
                    return kThrown;
                }
            });
        // '0' done (a formatter out of memory gives ""), 'C' the conversion's code, 'T' thrown.
        std::string outcomes;
        for (int status : statuses) {
            outcomes += status == 0                 ? '0'
                        : status == kThrown         ? 'T'
                        : status == int(0xC0000221) ? 'C'
                                                    : '?';
        }
        const char* pattern = type == FORMAT_V2_VARIATE_STRING ? "[C0]*T+0" : "[C0]*C[C0]*0";
        EXPECT_THAT(outcomes, testing::MatchesRegex(pattern)) << type;
    };
    const std::string text = "12.5 is a value text long enough to be allocated";
    check(FORMAT_V2_VARIATE_INT, 7);
    check(FORMAT_V2_VARIATE_INT, text);
    check(FORMAT_V2_VARIATE_FLOAT, 2.5f);
    check(FORMAT_V2_VARIATE_FLOAT, text);
    check(FORMAT_V2_VARIATE_STRING, 7);
    check(FORMAT_V2_VARIATE_STRING, -123456.75f);
    check(FORMAT_V2_VARIATE_STRING, text);
    check(FORMAT_V2_VARIATE_STRING, text, 1);
}
