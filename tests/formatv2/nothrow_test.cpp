// Process must never let an exception reach the host. Every allocation a run makes is made to
// fail in turn (operator new is replaced in this binary), and each such run must return. The
// fixture's log capture allocates too, so log calls throw as well.
// new and delete below both use malloc and free; GCC, seeing free() inlined where a
// new-expression's pointer is released, would call that a mismatch.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

#include <cstdlib>
#include <new>

#include "support/fixture.h"

namespace {
long g_allocations = 0;
long g_failAt = -1;  // the allocation number that throws; -1 for none
}  // namespace

void* operator new(std::size_t size) {
    if (g_failAt >= 0 && ++g_allocations == g_failAt) throw std::bad_alloc();
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}

using namespace fv2test;
using NoThrow = Fixture;

TEST_F(NoThrow, EveryAllocationFailureEndsTheRunWithAStatus) {
    for (int concat : {0, 1}) {
        ASSERT_EQ(
            Load(Config({Row("a", "1:a:p:*:%d", concat ? 3 : 1), Row("c", "\\r\\n"),
                         ArrayRow("arr", {{"1:a:q:*:%3.1f", ","}, {"1:a:r:*:%s", ";"}}),
                         Row("s", "1:a:t:0:%s", 3, 0, "\"StrPrefix\":\"<\",\"StrDelete\":\"x\",")},
                        concat)),
            0);
        FeedAll(Ints{1, 2}, Floats{1.5f, 2.5f}, Strings{"u", "v", "w"}, Strings{"xyz"});
        long failures = 0;
        for (long n = 1;; ++n) {
            out.frame = std::make_shared<CScFrame>();
            g_allocations = 0;
            g_failAt = n;
            g_logs.clear();
            int status = 0;
            EXPECT_NO_THROW(status = Run()) << "allocation " << n;
            g_failAt = -1;
            if (g_allocations < n) break;  // the run needed fewer: every point was tried
            failures += status != 0;
            // A run ended by a throw says so in one Err line.
            EXPECT_EQ(Count(kErr, "[Process] occur error:(0xe000000a)"),
                      status == int(0xE000000A) ? 1 : 0)
                << "allocation " << n;
        }
        EXPECT_GT(failures, 0);
        out.frame = std::make_shared<CScFrame>();
        ASSERT_EQ(Run(), 0);  // and the module still works afterwards
        EXPECT_EQ(Shown(), concat ? "\nall:12\r\n001.5,u;002.5,v;,w<yz"
                                  : "\na:1 2 \nc:\r\n \narr:001.5,u;002.5,v;,w \ns:<yz ");
    }
}
