// How a conversion text selects the element type of a subscribed value: by its last
// character, case-sensitively.
#pragma once

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
