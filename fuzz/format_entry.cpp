#include "fuzz/format_entry.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "format/formatter.h"
#include "formatv2/formatv2.h"
#include "fuzz/fdp_writer.h"
#include "fuzz/fuzz_support.h"
#include "tests/format/reference_formatter.h"

namespace fv2fuzz {

namespace {

constexpr int kErrNotConvertible = static_cast<int>(0xC0000221);
constexpr int kErrUnknownType = static_cast<int>(0xE000001C);

constexpr size_t kMaxFormat = 256;
constexpr size_t kMaxSeparator = 16;
constexpr size_t kMaxText = 256;
constexpr size_t kMaxDecoration = 64;
constexpr size_t kMaxDelete = 16;
constexpr size_t kMaxName = 48;

float FloatOf(uint32_t bits) {
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

uint32_t BitsOf(float value) {
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

std::string Quoted(const std::string& text) {
    return "[" + text + "]";
}

std::string Describe(int value) {
    return std::to_string(value);
}
std::string Describe(float value) {
    return "float bits " + Hex(static_cast<int>(BitsOf(value)));
}
std::string Describe(const std::string& value) {
    return Quoted(value);
}

// ---- the formatters and FloatToString --------------------------------------------------

void CheckCell(CFormatter& cell, CFormatter& reference, const FormatCase& c,
               const std::string& what) {
    FV2_FUZZ_CHECK(cell.m_strFormat == c.format && cell.m_strSeparator == c.separator,
                   what + ": format or separator not kept");
    const std::string text = cell.format();
    const std::string expected = reference.format();
    FV2_FUZZ_CHECK(text == expected, what + " format " + Quoted(c.format) + " gave " +
                                         Quoted(text) + ", expected " + Quoted(expected));
    FV2_FUZZ_CHECK(cell.format() == text, what + ": a second format() differs");
}

void RunFormatter(const FormatCase& c) {
    switch (c.op) {
        case FormatCase::kIntFormatter: {
            auto cell = createFormatter<int>(c.intValue, c.format, c.separator);
            RefIntFormatter reference(c.intValue, c.format, c.separator);
            CheckCell(*cell, reference, c, "int " + std::to_string(c.intValue));
            break;
        }
        case FormatCase::kFloatFormatter: {
            auto cell = createFormatter<float>(FloatOf(c.floatBits), c.format, c.separator);
            RefFloatFormatter reference(FloatOf(c.floatBits), c.format, c.separator);
            CheckCell(*cell, reference, c, Describe(FloatOf(c.floatBits)));
            break;
        }
        default: {
            auto cell = createFormatter<std::string>(c.text, c.format, c.separator);
            FV2_FUZZ_CHECK(cell->format() == c.text, "a text cell changed its text");
            FV2_FUZZ_CHECK(cell->m_strSeparator == c.separator, "text cell separator");
            break;
        }
    }
}

CFormatV2Module& SharedModule() {
    static ModulePtr module = [] {
        ResetHost();
        return PlacedModule();
    }();
    return *module;
}

// printf's "%.*g" of the value widened to double. Precisions past the longest exact
// expansion of a float give the same text, so the reference stops at 150.
std::string GeneralText(float value, int precision) {
    if (precision < 0) precision = 6;
    precision = std::min(precision, 150);
    char text[512];
    const int n = std::snprintf(text, sizeof text, "%.*g", precision, static_cast<double>(value));
    return std::string(text,
                       static_cast<size_t>(std::clamp(n, 0, static_cast<int>(sizeof text) - 1)));
}

void RunFloatToString(const FormatCase& c) {
    const float value = FloatOf(c.floatBits);
    const std::string text = SharedModule().FloatToString(value, c.precision);
    const std::string expected = GeneralText(value, c.precision);
    FV2_FUZZ_CHECK(text == expected, "FloatToString(bits " + Hex(static_cast<int>(c.floatBits)) +
                                         ", " + std::to_string(c.precision) + ") gave " +
                                         Quoted(text) + ", expected " + Quoted(expected));
}

// ---- the typed conversion, the rules written out step by step ---------------------------

bool RefToInt(int value, int& out) {
    out = value;
    return true;
}
bool RefToInt(float value, int& out) {
    if (std::isnan(value)) {
        out = 0;
    } else if (value >= 2147483648.0f) {
        out = INT_MAX;
    } else if (value <= -2147483648.0f) {
        out = INT_MIN;
    } else {
        out = static_cast<int>(value);
    }
    return true;
}
// std::stoi: blanks, a sign, decimal digits; no digits or a number beyond int fails.
bool RefToInt(const std::string& value, int& out) {
    const char* begin = value.c_str();
    char* end = nullptr;
    errno = 0;
    const long long number = std::strtoll(begin, &end, 10);
    if (end == begin || errno == ERANGE || number < INT_MIN || number > INT_MAX) return false;
    out = static_cast<int>(number);
    return true;
}

bool RefToFloat(int value, float& out) {
    out = static_cast<float>(value);
    return true;
}
bool RefToFloat(float value, float& out) {
    out = value;
    return true;
}
// std::stof: the longest leading part strtof reads; none, or a result out of range, fails.
bool RefToFloat(const std::string& value, float& out) {
    const char* begin = value.c_str();
    char* end = nullptr;
    errno = 0;
    out = std::strtof(begin, &end);
    return end != begin && errno != ERANGE;
}

std::string RefToText(int value, const std::string& format) {
    return RefIntFormatter(value, format, "").format();
}
std::string RefToText(float value, const std::string& format) {
    return RefFloatFormatter(value, format, "").format();
}
std::string RefToText(const std::string& value, const std::string&) {
    return value;
}

// Cut, decorate, then remove every occurrence of the delete text, searching again from the
// point of each removal.
std::string RefDecorated(std::string text, const FormatCase& c) {
    if (c.truncEnable) {
        const long long start = c.truncStart;
        const long long length = c.truncLen;
        if (start >= 0 && start < static_cast<long long>(text.size()) && length >= 0) {
            text = text.substr(static_cast<size_t>(start), static_cast<size_t>(length));
        } else {
            text.clear();
        }
    }
    text = c.prefix + text + c.suffix;
    if (!c.del.empty()) {
        size_t at = 0;
        while ((at = text.find(c.del, at)) != std::string::npos) text.erase(at, c.del.size());
    }
    return text;
}

template <typename T>
void RefStore(std::vector<T>& list, const T& value, int index) {
    if (index >= 0 && static_cast<size_t>(index) < list.size()) {
        list[static_cast<size_t>(index)] = value;
    } else {
        list.push_back(value);
    }
}

// What the module and the output frame hold around one conversion. Floats are compared by
// their bits, so that a NaN equals itself.
struct Outcome {
    std::string showEn, showCn, concat;
    bool hasFrame = false;
    std::vector<int> ints;
    std::vector<uint32_t> floats;
    std::vector<std::string> strings;
    size_t intTables = 0, floatTables = 0, stringTables = 0;

    bool operator==(const Outcome& o) const {
        return showEn == o.showEn && showCn == o.showCn && concat == o.concat &&
               hasFrame == o.hasFrame && ints == o.ints && floats == o.floats &&
               strings == o.strings && intTables == o.intTables && floatTables == o.floatTables &&
               stringTables == o.stringTables;
    }
};

Outcome Observe(const CFormatV2Module& module, const std::shared_ptr<CScFrame>& frame,
                const std::string& name) {
    Outcome o;
    o.showEn = module.ShowTextEN;
    o.showCn = module.ShowTextCN;
    o.concat = module.ConcatText;
    o.hasFrame = frame != nullptr;
    if (frame) {
        auto ints = frame->IntListTable.find(name);
        if (ints != frame->IntListTable.end()) o.ints = ints->second;
        auto floats = frame->FloatListTable.find(name);
        if (floats != frame->FloatListTable.end()) {
            for (float f : floats->second) o.floats.push_back(BitsOf(f));
        }
        auto strings = frame->StringListTable.find(name);
        if (strings != frame->StringListTable.end()) o.strings = strings->second;
        o.intTables = frame->IntListTable.size();
        o.floatTables = frame->FloatListTable.size();
        o.stringTables = frame->StringListTable.size();
    }
    return o;
}

// The expected status and outcome of converting value, starting from before.
template <typename T>
int Expect(const FormatCase& c, const T& value, Outcome& expected) {
    const auto show = [&expected](const std::string& text) {
        expected.showEn += text + " ";
        expected.showCn += text + " ";
    };
    switch (c.convertType) {
        case FORMAT_V2_VARIATE_INT: {
            int number = 0;
            if (!RefToInt(value, number) || c.noFrame) return kErrNotConvertible;
            if (expected.ints.empty()) ++expected.intTables;
            RefStore(expected.ints, number, c.index);
            show(std::to_string(number));
            return 0;
        }
        case FORMAT_V2_VARIATE_FLOAT: {
            float number = 0;
            if (!RefToFloat(value, number) || c.noFrame) return kErrNotConvertible;
            if (expected.floats.empty()) ++expected.floatTables;
            RefStore(expected.floats, BitsOf(number), c.index);
            show(GeneralText(number, 6));
            return 0;
        }
        case FORMAT_V2_VARIATE_STRING: {
            const std::string text = RefDecorated(RefToText(value, c.format), c);
            if (c.concat) {
                expected.concat += text;
                return 0;
            }
            if (c.noFrame) return kErrNotConvertible;
            if (expected.strings.empty()) ++expected.stringTables;
            RefStore(expected.strings, text, c.index);
            if (text != "\r") show(text);
            return 0;
        }
        default:
            return kErrUnknownType;
    }
}

template <typename T>
void RunConversion(const FormatCase& c, const T& value) {
    CFormatV2Module& module = SharedModule();
    module.StrConcateEnable = c.concat ? 1 : 0;
    module.ShowTextEN = "shown ";
    module.ShowTextCN = "shown ";
    module.ConcatText = "joined ";

    DataSection item;
    item.ParamName = c.name;
    item.DataType = FORMAT_V2_DATA_SUBSCRIBE;
    item.SubParamStr = "1:fuzz:value:*:" + c.format;
    item.SubParam.type = c.format;
    item.ConvertType = static_cast<FORMAT_V2_VARIATE_TYPE>(c.convertType);
    item.StrTruncEnable = c.truncEnable ? 1 : 0;
    item.StrTruncStart = c.truncStart;
    item.StrTruncLen = c.truncLen;
    item.StrPrefix = c.prefix;
    item.StrSuffix = c.suffix;
    item.StrDelete = c.del;

    std::shared_ptr<CScFrame> frame;
    if (!c.noFrame) {
        frame = std::make_shared<CScFrame>();
        // Earlier values of the same item, as a value list of c.stored elements leaves them.
        if (c.stored > 0) {
            frame->IntListTable[c.name].assign(c.stored, -1);
            frame->FloatListTable[c.name].assign(c.stored, -1.5f);
            frame->StringListTable[c.name].assign(c.stored, "earlier");
        }
    }

    Outcome expected = Observe(module, frame, c.name);
    const int expectedStatus = Expect(c, value, expected);
    const int index = c.index;
    const int status = module.ConvertAndSendOutputValue<T>(frame, item, value, index);

    const std::string what = "conversion to type " + std::to_string(c.convertType) + " of " +
                             Describe(value) + " format " + Quoted(c.format);
    FV2_FUZZ_CHECK(status == expectedStatus,
                   what + ": status " + Hex(status) + ", expected " + Hex(expectedStatus));
    // A failed conversion leaves everything as it was, as the expectation does.
    const Outcome actual = Observe(module, frame, c.name);
    FV2_FUZZ_CHECK(
        actual.showEn == expected.showEn && actual.showCn == expected.showCn,
        what + ": display text " + Quoted(actual.showEn) + ", expected " + Quoted(expected.showEn));
    FV2_FUZZ_CHECK(
        actual.concat == expected.concat,
        what + ": joined text " + Quoted(actual.concat) + ", expected " + Quoted(expected.concat));
    FV2_FUZZ_CHECK(actual == expected, what + ": output lists differ from the expected ones");
}

}  // namespace

FormatCase DecodeFormatCase(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    FormatCase c;
    c.op = in.ConsumeIntegralInRange<uint8_t>(0, FormatCase::kOpCount - 1);
    c.intValue = in.ConsumeIntegral<int32_t>();
    c.floatBits = in.ConsumeIntegral<uint32_t>();
    c.precision = in.ConsumeIntegral<int32_t>();
    c.convertType = in.ConsumeIntegralInRange<int32_t>(0, 4);
    c.truncEnable = in.ConsumeBool();
    c.truncStart = in.ConsumeIntegral<int32_t>();
    c.truncLen = in.ConsumeIntegral<int32_t>();
    c.concat = in.ConsumeBool();
    c.noFrame = in.ConsumeBool();
    c.index = in.ConsumeIntegralInRange<int32_t>(-2, 9);
    c.stored = in.ConsumeIntegralInRange<uint8_t>(0, 8);
    c.format = in.ConsumeRandomLengthString(kMaxFormat);
    c.separator = in.ConsumeRandomLengthString(kMaxSeparator);
    c.text = in.ConsumeRandomLengthString(kMaxText);
    c.prefix = in.ConsumeRandomLengthString(kMaxDecoration);
    c.suffix = in.ConsumeRandomLengthString(kMaxDecoration);
    c.del = in.ConsumeRandomLengthString(kMaxDelete);
    c.name = in.ConsumeRandomLengthString(kMaxName);
    return c;
}

std::string EncodeFormatCase(const FormatCase& c) {
    FdpWriter out;
    out.IntegralInRange<uint8_t>(c.op, 0, FormatCase::kOpCount - 1);
    out.Integral<int32_t>(c.intValue);
    out.Integral<uint32_t>(c.floatBits);
    out.Integral<int32_t>(c.precision);
    out.IntegralInRange<int32_t>(c.convertType, 0, 4);
    out.Bool(c.truncEnable);
    out.Integral<int32_t>(c.truncStart);
    out.Integral<int32_t>(c.truncLen);
    out.Bool(c.concat);
    out.Bool(c.noFrame);
    out.IntegralInRange<int32_t>(c.index, -2, 9);
    out.IntegralInRange<uint8_t>(c.stored, 0, 8);
    for (const std::string* s :
         {&c.format, &c.separator, &c.text, &c.prefix, &c.suffix, &c.del, &c.name}) {
        out.String(*s);
    }
    return out.Bytes();
}

void RunFormatCase(const FormatCase& c) {
    switch (c.op) {
        case FormatCase::kIntFormatter:
        case FormatCase::kFloatFormatter:
        case FormatCase::kStringFormatter:
            RunFormatter(c);
            break;
        case FormatCase::kFloatToString:
            RunFloatToString(c);
            break;
        case FormatCase::kConvertInt:
            RunConversion<int>(c, c.intValue);
            break;
        case FormatCase::kConvertFloat:
            RunConversion<float>(c, FloatOf(c.floatBits));
            break;
        default:
            RunConversion<std::string>(c, c.text);
            break;
    }
}

void RunFormatInput(const uint8_t* data, size_t size) {
    RunFormatCase(DecodeFormatCase(data, size));
}

}  // namespace fv2fuzz
