// libstdc++ has exported std::runtime_error's move constructor only since GCC 9
// (GLIBCXX_3.4.26), while the headers of GCC 9 and later declare it. CLI11 moves one of its
// errors (a runtime_error) when it parses the command line, so the runner would ask the device
// for GCC 9's runtime for that one call. Defined here as the copy, the runner's own definition
// is used instead and it needs nothing newer than GLIBCXX_3.4.21 for it. A copy is a valid
// move: the error's only state is its reference-counted message, which both then share.
#include <stdexcept>

std::runtime_error::runtime_error(runtime_error&& other) noexcept
    : runtime_error(static_cast<const runtime_error&>(other)) {}
