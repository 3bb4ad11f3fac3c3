// Fixed texts from the configuration: custom texts as typed, and line-break symbols turned
// into the real control characters.
#include "assembly/assembly.h"

namespace formatv2 {

int AssembleCustomData(DataSection& section) {
    section.SubParam.type = "%s";
    // One copy of the configured text; a braced list would copy it twice.
    section.Value = StringList(1, section.SubParamStr);
    return 0;
}

void AssembleSymbolData(DataSection& section) {
    std::string text = section.SubParamStr;
    // The longer escape goes first, so that "\r\n" never becomes CR followed by "\n".
    SpecialCharReplace(text, EscapedCrLf, "\r\n");
    SpecialCharReplace(text, EscapedCr, "\r");
    section.SubParam.type = "%s";
    StringList value;
    value.push_back(std::move(text));
    section.Value = std::move(value);
}

void SpecialCharReplace(std::string& text, const std::string& from, const std::string& to) {
    if (from.empty()) return;
    size_t pos = 0;
    while ((pos = text.find(from, pos)) != std::string::npos) {
        text.replace(pos, from.size(), to);
        // Resume after the inserted text: it is never searched again.
        pos += to.size();
    }
}

}  // namespace formatv2
