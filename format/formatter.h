// Value formatters: one small object per value that turns an int, float or text into text by
// a printf-like format text. Only the width (and for floats the precision) is read from the
// format text, exactly as sscanf reads it with "%%%dd" (int) or "%%%d.%d" (float): blanks may
// stand before the '%' and before each number, a sign is allowed, and an over-long number
// narrows as glibc's scanf narrows it (through long, so the two ABIs differ). The fill is
// always '0' and the conversion letter is never looked at.
//
// Choices this module makes where the format rules leave room:
// - A negative int narrower than its width gets its sign first, as printf's "%0Nd" does: -5
//   with "%4d" gives "-005" (the width counts the sign).
// - A negative precision counts as 0.
// - A NaN float gives "nan", an infinite one "inf" or "-inf" (no padding). A float whose
//   integer part does not fit 64 bits gives its exact whole digits.
// - Widths and precisions above kFormatterMaxWidth count as kFormatterMaxWidth, so a stray
//   "%999999999d" costs at most 4096 characters of padding (or fraction digits), never all
//   the memory. Up to the bound the texts are exactly what the format rules give.
// - format() never throws: should memory run out, it gives an empty text.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <utility>

#include "formatv2/contract.h"

constexpr int kFormatterMaxWidth = kMaxFormatWidth;

// While a scope lives on a thread, formatters freed there keep their blocks for the next ones
// to reuse; when the outermost scope ends, the blocks go back to the heap. The run driver holds
// one per run, so a thread that ends, or a library that is unloaded, leaves nothing behind,
// and formatters made outside a run use the heap directly.
class FormatterBlockScope {
  public:
    FormatterBlockScope() noexcept;
    ~FormatterBlockScope();
    FormatterBlockScope(const FormatterBlockScope&) = delete;
    FormatterBlockScope& operator=(const FormatterBlockScope&) = delete;
};

class CFormatter {
  public:
    // Copied straight into the members: a by-value parameter moved on would copy a short
    // string twice, once per cell of every array.
    CFormatter(const std::string& format, const std::string& separator)
        : m_strFormat(format), m_strSeparator(separator) {}
    virtual ~CFormatter() = default;
    // The formatted value; never fails, never throws.
    virtual std::string format() = 0;

    // An array item creates and drops one formatter per cell, thousands per run, one after the
    // other. Within a FormatterBlockScope a thread keeps a few freed blocks to reuse instead of
    // going to the heap each time.
    static void* operator new(std::size_t size);
    static void operator delete(void* block, std::size_t size) noexcept;

    std::string m_strFormat;
    std::string m_strSeparator;  // appended by the caller after format(); not read here
};

class IntFormatter : public CFormatter {
  public:
    IntFormatter(int value, const std::string& format, const std::string& separator)
        : CFormatter(format, separator), m_value(value) {}
    ~IntFormatter() override = default;
    std::string format() override;

    int m_value;
};

class FloatFormatter : public CFormatter {
  public:
    FloatFormatter(float value, const std::string& format, const std::string& separator)
        : CFormatter(format, separator), m_value(value) {}
    ~FloatFormatter() override = default;
    std::string format() override;

    float m_value;
};

class StringFormatter : public CFormatter {
  public:
    // Takes the factory's own copy of the value over, rather than moving it once more.
    StringFormatter(std::string&& value, const std::string& format, const std::string& separator)
        : CFormatter(format, separator), m_value(std::move(value)) {}
    ~StringFormatter() override = default;
    std::string format() override;

    std::string m_value;
};

template <typename T>
std::unique_ptr<CFormatter> createFormatter(T value, const std::string& format,
                                            const std::string& separator);

template <>
inline std::unique_ptr<CFormatter> createFormatter<int>(int value, const std::string& format,
                                                        const std::string& separator) {
    return std::make_unique<IntFormatter>(value, format, separator);
}

template <>
inline std::unique_ptr<CFormatter> createFormatter<float>(float value, const std::string& format,
                                                          const std::string& separator) {
    return std::make_unique<FloatFormatter>(value, format, separator);
}

template <>
inline std::unique_ptr<CFormatter> createFormatter<std::string>(std::string value,
                                                                const std::string& format,
                                                                const std::string& separator) {
    return std::make_unique<StringFormatter>(std::move(value), format, separator);
}

// printf's "%.*g" of value widened to double: general notation, precision significant digits
// (a negative precision counts as 6, 0 as 1). Never throws (an empty text when memory runs out).
std::string FloatToStringGeneral(float value, int precision);
