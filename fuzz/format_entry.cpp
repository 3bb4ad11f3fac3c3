#include "fuzz/format_entry.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <tuple>
#include <vector>

#include "format/formatter.h"
#include "formatv2/formatv2.h"
#include "fuzz/fuzz_support.h"
#include "tests/format/reference_formatter.h"

namespace fv2fuzz {

namespace {

// One input: what to call, then the values, the item's settings and the module's state.
struct FormatCase {
    enum Op : uint8_t {
        kIntFormatter,
        kFloatFormatter,
        kStringFormatter,
        kFloatToString,
        kConvertInt,  // ConvertAndSendOutputValue<int>, <float>, <std::string>
        kConvertFloat,
        kConvertString,
        kOpCount
    };
    uint8_t op = kIntFormatter;
    int32_t intValue = 0;
    float floatValue = 0;     // any bits: NaN, infinities, -0 and subnormals too
    int32_t precision = 0;    // FloatToString's
    int32_t convertType = 0;  // 0 to 4: 1 to 3 are the three targets
    bool truncEnable = false;
    int32_t truncStart = 0, truncLen = 0;
    bool concat = false;   // StrConcateEnable
    bool noFrame = false;  // no output frame
    int32_t index = 0;     // the value's position in its item (-2 to 9)
    uint8_t stored = 0;    // elements the output lists already hold under the item's name (0 to 8)
    std::string format, separator, text, prefix, suffix, del, name;  // del: StrDelete
};

std::string Describe(int value) {
    return std::to_string(value);
}
std::string Describe(float value) {
    return "float bits " + Hex(static_cast<int>(BitsOf(value)));
}
std::string Describe(const std::string& value) {
    return "[" + value + "]";
}

CFormatV2Module& SharedModule() {
    static ModulePtr module = [] {
        ResetHost();
        return PlacedModule();
    }();
    return *module;
}

// ---- the formatters and FloatToString, against the plain versions ----------------------

void CheckCell(CFormatter& cell, CFormatter& reference, const FormatCase& c,
               const std::string& what) {
    FV2_FUZZ_CHECK(cell.m_strFormat == c.format && cell.m_strSeparator == c.separator,
                   what + ": format or separator not kept");
    const std::string text = cell.format(), expected = reference.format();
    FV2_FUZZ_CHECK(text == expected, what + " format " + Describe(c.format) + " gave " +
                                         Describe(text) + ", expected " + Describe(expected));
    FV2_FUZZ_CHECK(cell.format() == text, what + ": a second format() differs");
}

void RunFormatter(const FormatCase& c) {
    if (c.op == FormatCase::kIntFormatter) {
        RefIntFormatter reference(c.intValue, c.format, c.separator);
        CheckCell(*createFormatter<int>(c.intValue, c.format, c.separator), reference, c,
                  Describe(c.intValue));
    } else if (c.op == FormatCase::kFloatFormatter) {
        RefFloatFormatter reference(c.floatValue, c.format, c.separator);
        CheckCell(*createFormatter<float>(c.floatValue, c.format, c.separator), reference, c,
                  Describe(c.floatValue));
    } else if (c.op == FormatCase::kStringFormatter) {
        auto cell = createFormatter<std::string>(c.text, c.format, c.separator);
        FV2_FUZZ_CHECK(cell->format() == c.text && cell->m_strSeparator == c.separator,
                       "a text cell changed its text or separator");
    } else {
        const std::string text = SharedModule().FloatToString(c.floatValue, c.precision);
        const std::string expected = RefGeneralText(c.floatValue, c.precision);
        FV2_FUZZ_CHECK(text == expected, "FloatToString(" + Describe(c.floatValue) + ", " +
                                             std::to_string(c.precision) + ") gave " +
                                             Describe(text) + ", expected " + Describe(expected));
    }
}

// ---- the typed conversion, the rules written out step by step ---------------------------

// Numbers convert as C++ converts them, floats to int saturating and NaN to 0; texts as
// std::stoi and std::stof read them: the longest leading number, and none or one out of range
// fails.
template <typename From, typename To>
bool RefTo(From value, To& out) {
    out = static_cast<To>(value);
    return true;
}
bool RefTo(float value, int& out) {
    out = std::isnan(value)         ? 0
          : value >= 2147483648.0f  ? INT_MAX
          : value <= -2147483648.0f ? INT_MIN
                                    : static_cast<int>(value);
    return true;
}
bool RefTo(const std::string& value, int& out) {
    char* end = nullptr;
    errno = 0;
    const long long number = std::strtoll(value.c_str(), &end, 10);
    out = static_cast<int>(number);
    return end != value.c_str() && errno != ERANGE && number >= INT_MIN && number <= INT_MAX;
}
bool RefTo(const std::string& value, float& out) {
    char* end = nullptr;
    errno = 0;
    out = std::strtof(value.c_str(), &end);
    return end != value.c_str() && errno != ERANGE;
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
        const bool inside = c.truncStart >= 0 && c.truncStart < static_cast<long long>(text.size());
        text = inside && c.truncLen >= 0 ? text.substr(c.truncStart, c.truncLen) : "";
    }
    text = c.prefix + text + c.suffix;
    for (size_t at = 0; !c.del.empty() && (at = text.find(c.del, at)) != std::string::npos;) {
        text.erase(at, c.del.size());
    }
    return text;
}

// What the module and the output frame hold around one conversion: display texts, joined
// text, the lists under the item's name (floats by their bits, so that a NaN equals itself)
// and the number of lists in each table.
struct Outcome {
    std::string showEn, showCn, concat;
    std::vector<int> ints;
    std::vector<uint32_t> floats;
    std::vector<std::string> texts;
    size_t intLists = 0, floatLists = 0, textLists = 0;
    auto Tie() const {
        return std::tie(showEn, showCn, concat, ints, floats, texts, intLists, floatLists,
                        textLists);
    }
};

Outcome Observe(const CFormatV2Module& module, const CScFrame* frame, const std::string& name) {
    Outcome o;
    std::tie(o.showEn, o.showCn, o.concat) =
        std::tie(module.ShowTextEN, module.ShowTextCN, module.ConcatText);
    if (frame == nullptr) return o;
    const auto copy = [&name](const auto& table, auto& out) {
        auto it = table.find(name);
        if (it != table.end()) out.assign(it->second.begin(), it->second.end());
        return table.size();
    };
    o.intLists = copy(frame->IntListTable, o.ints);
    o.textLists = copy(frame->StringListTable, o.texts);
    std::vector<float> floats;
    o.floatLists = copy(frame->FloatListTable, floats);
    for (float f : floats) o.floats.push_back(BitsOf(f));
    return o;
}

// An index inside the list overwrites its element, any other appends; a new list adds one
// to its table's count.
template <typename T>
void RefStore(std::vector<T>& list, size_t& lists, const T& value, int index) {
    lists += list.empty();
    if (index >= 0 && static_cast<size_t>(index) < list.size()) {
        list[static_cast<size_t>(index)] = value;
    } else {
        list.push_back(value);
    }
}

// The expected status of converting value; expected turns from the state before into the
// state after.
template <typename T>
int Expect(const FormatCase& c, const T& value, Outcome& expected) {
    const auto show = [&expected](const std::string& text) {
        expected.showEn += text + " ";
        expected.showCn += text + " ";
    };
    int number = 0;
    float real = 0;
    switch (c.convertType) {
        case FORMAT_V2_VARIATE_INT:
            if (!RefTo(value, number) || c.noFrame) return kStatusNotConvertible;
            RefStore(expected.ints, expected.intLists, number, c.index);
            show(std::to_string(number));
            return 0;
        case FORMAT_V2_VARIATE_FLOAT:
            if (!RefTo(value, real) || c.noFrame) return kStatusNotConvertible;
            RefStore(expected.floats, expected.floatLists, BitsOf(real), c.index);
            show(RefGeneralText(real, 6));
            return 0;
        case FORMAT_V2_VARIATE_STRING: {
            const std::string text = RefDecorated(RefToText(value, c.format), c);
            if (c.concat) {
                expected.concat += text;
                return 0;
            }
            if (c.noFrame) return kStatusNotConvertible;
            RefStore(expected.texts, expected.textLists, text, c.index);
            if (text != "\r") show(text);
            return 0;
        }
        default:
            return kStatusIndex;
    }
}

template <typename T>
void RunConversion(const FormatCase& c, const T& value) {
    CFormatV2Module& module = SharedModule();
    module.StrConcateEnable = c.concat ? 1 : 0;
    module.ShowTextEN = module.ShowTextCN = "shown ";
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
    Outcome expected = Observe(module, frame.get(), c.name);
    const int expectedStatus = Expect(c, value, expected);
    const int status = module.ConvertAndSendOutputValue<T>(frame, item, value, c.index);

    // A failed conversion leaves everything as it was, as the expectation does.
    const Outcome actual = Observe(module, frame.get(), c.name);
    const std::string what = "conversion to type " + std::to_string(c.convertType) + " of " +
                             Describe(value) + " format " + Describe(c.format);
    FV2_FUZZ_CHECK(status == expectedStatus,
                   what + ": status " + Hex(status) + ", expected " + Hex(expectedStatus));
    FV2_FUZZ_CHECK(actual.showEn == expected.showEn && actual.concat == expected.concat,
                   what + ": display text " + Describe(actual.showEn) + ", joined text " +
                       Describe(actual.concat) + ", expected " + Describe(expected.showEn) + ", " +
                       Describe(expected.concat));
    FV2_FUZZ_CHECK(actual.Tie() == expected.Tie(), what + ": output lists differ");
}

}  // namespace

void RunFormatInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    FormatCase c;
    c.op = in.ConsumeIntegralInRange<uint8_t>(0, FormatCase::kOpCount - 1);
    c.intValue = in.ConsumeIntegral<int32_t>();
    c.floatValue = FloatOf(in.ConsumeIntegral<uint32_t>());
    c.precision = in.ConsumeIntegral<int32_t>();
    c.convertType = in.ConsumeIntegralInRange<int32_t>(0, 4);
    c.truncEnable = in.ConsumeBool();
    c.truncStart = in.ConsumeIntegral<int32_t>();
    c.truncLen = in.ConsumeIntegral<int32_t>();
    c.concat = in.ConsumeBool();
    c.noFrame = in.ConsumeBool();
    c.index = in.ConsumeIntegralInRange<int32_t>(-2, 9);
    c.stored = in.ConsumeIntegralInRange<uint8_t>(0, 8);
    for (auto [text, most] : {std::pair{&c.format, 256},
                              {&c.separator, 16},
                              {&c.text, 256},
                              {&c.prefix, 64},
                              {&c.suffix, 64},
                              {&c.del, 16},
                              {&c.name, 48}}) {
        *text = in.ConsumeRandomLengthString(most);
    }
    switch (c.op) {
        case FormatCase::kConvertInt:
            return RunConversion<int>(c, c.intValue);
        case FormatCase::kConvertFloat:
            return RunConversion<float>(c, c.floatValue);
        case FormatCase::kConvertString:
            return RunConversion<std::string>(c, c.text);
        default:
            return RunFormatter(c);
    }
}

}  // namespace fv2fuzz
