// How a subscription text is read: the conversion text selects the element type of a
// subscribed value by its last character, case-sensitively, and the index text names one
// element by number.
#pragma once

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string>

enum class ElementKind { kNone, kInt, kFloat, kString };

inline ElementKind ElementKindOf(const std::string& type) {
    if (type.empty()) return ElementKind::kNone;
    switch (type.back()) {
        case 'd':
        case 'u':
        case 'x':
            return ElementKind::kInt;
        case 'f':
            return ElementKind::kFloat;
        case 's':
            return ElementKind::kString;
        default:
            return ElementKind::kNone;
    }
}

// The element number as std::stoi reads it (leading blanks, sign, digits, rest ignored),
// without its exceptions: false when there is no number or it is beyond the int range.
inline bool ParseElementNumber(const std::string& text, int& number) {
    const char* begin = text.c_str();
    char* end = nullptr;
    errno = 0;
    const long long value = std::strtoll(begin, &end, 10);
    if (end == begin || errno == ERANGE || value < INT_MIN || value > INT_MAX) return false;
    number = static_cast<int>(value);
    return true;
}
