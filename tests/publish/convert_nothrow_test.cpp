// Makes the Nth allocation fail, for every N that a conversion reaches: whichever step runs
// out of memory, the conversion must end in its failure code and never throw. Replaces the
// global operator new, so it lives in a binary of its own.
#include <gtest/gtest.h>

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
    int failures = 0;
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
        int result = -1;
        EXPECT_NO_THROW(result = module.ConvertAndSendOutputValue<T>(frame, item, value, 0));
        gFailAt = -1;
        if (gCount <= failAt) {  // every allocation granted
            EXPECT_EQ(result, 0);
            break;
        }
        EXPECT_TRUE(result == 0 || result == static_cast<int>(0xC0000221)) << failAt;
        failures += result != 0;
    }
    EXPECT_GT(failures, 0) << type;
}

TEST(ConvertOutOfMemory, NeverThrows) {
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
