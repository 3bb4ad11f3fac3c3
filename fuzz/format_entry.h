// The value formatters, FloatToString and the typed conversion under hostile input: format
// texts, values, truncation numbers, prefixes, suffixes and delete texts, each result held
// to a plain reference (sscanf and string streams, printf, the conversion steps written out).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace fv2fuzz {

struct FormatCase {
    enum Op : uint8_t {
        kIntFormatter,
        kFloatFormatter,
        kStringFormatter,
        kFloatToString,
        kConvertInt,     // ConvertAndSendOutputValue<int>
        kConvertFloat,   // ConvertAndSendOutputValue<float>
        kConvertString,  // ConvertAndSendOutputValue<std::string>
        kOpCount
    };
    uint8_t op = kIntFormatter;
    int32_t intValue = 0;
    uint32_t floatBits = 0;  // the float value's bits: NaN, infinities, -0 and subnormals too
    int32_t precision = 0;   // FloatToString's
    // The item and module state of a conversion.
    int32_t convertType = 0;  // 0 to 4: 1 to 3 are the three targets
    bool truncEnable = false;
    int32_t truncStart = 0;
    int32_t truncLen = 0;
    bool concat = false;   // StrConcateEnable
    bool noFrame = false;  // no output frame
    int32_t index = 0;     // the value's position in its item (-2 to 9)
    uint8_t stored = 0;    // elements the output lists already hold under the item's name (0 to 8)
    std::string format;    // the format text (the item's or field's type)
    std::string separator;
    std::string text;  // the text value
    std::string prefix;
    std::string suffix;
    std::string del;   // StrDelete
    std::string name;  // the item's ParamName
};

FormatCase DecodeFormatCase(const uint8_t* data, size_t size);
// Bytes that DecodeFormatCase reads back as the case (for seed inputs).
std::string EncodeFormatCase(const FormatCase& c);

void RunFormatCase(const FormatCase& c);
// One fuzz input.
void RunFormatInput(const uint8_t* data, size_t size);

}  // namespace fv2fuzz
