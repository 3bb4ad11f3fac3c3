// Makes the Nth allocation fail, for every N that a conversion reaches. To an int or a float,
// any failing step is a failed conversion: its code, never an exception. To a text, only
// making the text is the conversion: a failure there gives the code, and one in a later step
// (cutting, decorating, storing) propagates for the run driver to end the run. Replaces the
// global operator new, so it lives in a binary of its own.
// new and delete below both use malloc and free; GCC, seeing free() inlined where a
// new-expression's pointer is released, would call that a mismatch.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

#include <gmock/gmock.h>

#include <cstdlib>
#include <new>
#include <string>

#include "formatv2/formatv2.h"

long gCount = 0, gFailAt = -1;  // -1: no allocation fails

void* operator new(std::size_t size) {
    void* block = gFailAt >= 0 && gCount++ == gFailAt ? nullptr : std::malloc(size ? size : 1);
    return block ? block : throw std::bad_alloc();
}
void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

template <typename T>
void FailEachAllocation(FORMAT_V2_VARIATE_TYPE type, const T& value, int concatenate = 0) {
    std::string outcomes;
    for (long failAt = 0;; ++failAt) {
        CFormatV2Module module;
        module.StrConcateEnable = concatenate;
        module.ShowTextEN = "shown before ";
        module.ConcatText = "joined before ";
        auto frame = std::make_shared<CScFrame>();
        DataSection item;
        item.ParamName = "a name too long for the short string buffer";
        item.ConvertType = type;
        item.SubParam.type = "%20.3f";
        item.StrTruncEnable = 1;
        item.StrTruncLen = 30;
        item.StrPrefix = "a prefix that must be allocated ";
        item.StrSuffix = " and a suffix that must be allocated";
        item.StrDelete = "a";
        gCount = 0;
        gFailAt = failAt;
        char outcome = '0';  // '0' done, 'C' the conversion's code, 'T' thrown
        try {
            const int result = module.ConvertAndSendOutputValue<T>(frame, item, value, 0);
            if (result != 0) outcome = result == static_cast<int>(0xC0000221) ? 'C' : '?';
        } catch (const std::bad_alloc&) {
            outcome = 'T';
        }
        gFailAt = -1;
        if (gCount <= failAt) {  // every allocation granted
            EXPECT_EQ(outcome, '0');
            break;
        }
        outcomes += outcome;
    }
    // Texts: the conversion's allocations come first, then every later one throws. A
    // formatter that runs out of memory gives "" rather than failing ('0').
    const std::string pattern = type == FORMAT_V2_VARIATE_STRING ? "[C0]*T+" : "[C0]*C[C0]*";
    EXPECT_THAT(outcomes, testing::MatchesRegex(pattern)) << type;
}

TEST(ConvertOutOfMemory, ConversionFailsWithItsCodeLaterStepsThrow) {
    const std::string text = "12.5 is a value text long enough to be allocated";
    FailEachAllocation(FORMAT_V2_VARIATE_INT, 7);
    FailEachAllocation(FORMAT_V2_VARIATE_INT, text);
    FailEachAllocation(FORMAT_V2_VARIATE_FLOAT, 2.5f);
    FailEachAllocation(FORMAT_V2_VARIATE_FLOAT, text);
    FailEachAllocation(FORMAT_V2_VARIATE_STRING, 7);
    FailEachAllocation(FORMAT_V2_VARIATE_STRING, -123456.75f);
    FailEachAllocation(FORMAT_V2_VARIATE_STRING, text);
    FailEachAllocation(FORMAT_V2_VARIATE_STRING, text, 1);
}
