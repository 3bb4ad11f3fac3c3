// Every form allocates with malloc and frees with free, so any new pairs with any delete. GCC,
// seeing free() inlined where a new-expression's pointer is released, would call that a
// mismatch.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

#include "support/alloc_counter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;
std::atomic<long> g_count{0};
std::atomic<long> g_fail_at{0};  // the count that fails; 0 for none

void* Allocate(std::size_t size) noexcept {
    const long n = g_count.fetch_add(1, kRelaxed) + 1;
    if (n == g_fail_at.load(kRelaxed)) return nullptr;
    return std::malloc(size ? size : 1);
}

void* AllocateOrThrow(std::size_t size) {
    if (void* p = Allocate(size)) return p;
    throw std::bad_alloc();
}

}  // namespace

namespace fv2test {

long AllocationCount() {
    return g_count.load(kRelaxed);
}

void FailNthAllocation(long n) {
    g_fail_at.store(n > 0 ? g_count.load(kRelaxed) + n : 0, kRelaxed);
}

}  // namespace fv2test

void* operator new(std::size_t size) {
    return AllocateOrThrow(size);
}
void* operator new[](std::size_t size) {
    return AllocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
