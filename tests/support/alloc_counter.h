// Linking this library replaces the program's global operator new and delete (the plain, array
// and nothrow forms, sized and unsized deletes) with ones that count every allocation and can
// be made to fail one of them. The over-aligned forms are left to the standard library and are
// not counted.
#pragma once

namespace fv2test {

// operator new calls in this process so far, failed ones included.
long AllocationCount();

// Makes the nth operator new call from now on fail (std::bad_alloc, or null from the nothrow
// forms); the calls after it succeed again. n <= 0: none fails.
void FailNthAllocation(long n);

}  // namespace fv2test
