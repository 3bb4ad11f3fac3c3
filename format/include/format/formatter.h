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
// - Widths and precisions above kMaxFormatWidth count as kMaxFormatWidth, so a stray
//   "%999999999d" costs at most 4096 characters of padding (or fraction digits), never all
//   the memory. Up to the bound the texts are exactly what the format rules give.
// - format() never throws: should memory run out, it gives an empty text.
#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "contract/contract.h"

// A text built by appending, written in place: the string is kept longer than what was
// written, grows by doubling when the room falls short, and is cut to what was written at the
// end. A piece of a few bytes is cheaper to write or copy here than through the library's
// general append, and a formatter writes its text here without making a string of its own.
class TextBuilder {
  public:
    explicit TextBuilder(size_t room) { text_.resize(room); }
    // Where the next n bytes go; Commit(n) once they are written. At least a block more
    // stays writable behind them.
    char* Room(size_t n) {
        if (text_.size() - used_ < n + kBlock) Grow(n);
        return &text_[0] + used_;
    }
    // Room(n) with the n bytes set to '0', a block at a time (the room behind covers the last).
    char* Zeros(size_t n) {
        char* out = Room(n);
        for (size_t i = 0; i < n; i += kBlock) std::memcpy(out + i, kZeroBlock, kBlock);
        return out;
    }
    void Commit(size_t n) { used_ += n; }
    size_t Size() const { return used_; }
    void Append(const std::string& piece) {
        const size_t n = piece.size();
        char* out = Room(n);
        if (n <= kBlock) {
            CopyShort(out, piece.data(), n);
        } else {
            std::memcpy(out, piece.data(), n);
        }
        used_ += n;
    }
    std::string Take() {
        text_.resize(used_);
        return std::move(text_);
    }

  private:
    // n <= kBlock bytes as at most two fixed-size copies, which the compiler makes in line,
    // where a call would cost more than the bytes. The copies overlap rather than read past
    // the n bytes, so any string's storage serves, and they read the piece the way a short
    // copy wrote it: a wider read over narrower fresh writes would stall until they land.
    static void CopyShort(char* out, const char* in, size_t n) {
        if (n >= 8) {
            std::memcpy(out, in, 8);
            std::memcpy(out + n - 8, in + n - 8, 8);
        } else if (n >= 4) {
            std::memcpy(out, in, 4);
            std::memcpy(out + n - 4, in + n - 4, 4);
        } else if (n >= 2) {
            std::memcpy(out, in, 2);
            std::memcpy(out + n - 2, in + n - 2, 2);
        } else if (n == 1) {
            *out = *in;
        }
    }

    void Grow(size_t n);
    static constexpr size_t kBlock = 16;
    static constexpr char kZeroBlock[kBlock + 1] = "0000000000000000";
    std::string text_;
    size_t used_ = 0;
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

    std::string m_strFormat;
    std::string m_strSeparator;  // appended by the caller after format(); not read here
};

class IntFormatter : public CFormatter {
  public:
    IntFormatter(int value, const std::string& format, const std::string& separator)
        : CFormatter(format, separator), m_value(value) {}
    ~IntFormatter() override = default;
    std::string format() override;
    // format()'s text, appended to out.
    void AppendTo(TextBuilder& out) const;

    int m_value;
};

class FloatFormatter : public CFormatter {
  public:
    FloatFormatter(float value, const std::string& format, const std::string& separator)
        : CFormatter(format, separator), m_value(value) {}
    ~FloatFormatter() override = default;
    std::string format() override;
    void AppendTo(TextBuilder& out) const;

    float m_value;
};

class StringFormatter : public CFormatter {
  public:
    // Takes the factory's own copy of the value over, rather than moving it once more.
    StringFormatter(std::string&& value, const std::string& format, const std::string& separator)
        : CFormatter(format, separator), m_value(std::move(value)) {}
    ~StringFormatter() override = default;
    std::string format() override;
    void AppendTo(TextBuilder& out) const;

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

// The numbers a formatter reads from a format text, as sscanf reads them with "%%%d.%d": how
// many it read, and the width and precision (0 when not read). An int's formatter reads
// "%%%dd", which stops after the same width. The formatters cap both at kMaxFormatWidth when
// they use them.
struct FormatNumbers {
    int read = 0;
    int width = 0;
    int precision = 0;
};
// A format text read once, when the configuration is read, for every value formatted by it:
// what the formatters read of it, and what a printf user wrote there that they do not read.
struct ParsedFormat {
    std::string text;               // the format text it was read from
    FormatNumbers numbers;          // with the precision; an int's formatter takes the width alone
    std::string flags;              // the printf flags ("-+ #0") right after the first '%'
    bool widthWritten = false;      // digits after the flags
    bool precisionWritten = false;  // a '.' after them
};
ParsedFormat ReadFormat(const std::string& text);
// The parsed form of text: parsed, when it was read from text (as the configuration's are), else
// read into scratch.
inline const ParsedFormat& ParsedFor(const ParsedFormat& parsed, const std::string& text,
                                     ParsedFormat& scratch) {
    if (parsed.text == text) return parsed;
    scratch = ReadFormat(text);
    return scratch;
}

// A value formatted by a parsed format, as the formatters format it by its text: appended to out,
// or as a text of its own.
void AppendInt(TextBuilder& out, int value, const ParsedFormat& parsed);
void AppendFloat(TextBuilder& out, float value, const ParsedFormat& parsed);
std::string FormatInt(int value, const ParsedFormat& parsed);
std::string FormatFloat(float value, const ParsedFormat& parsed);

// printf's "%.*g" of value widened to double: general notation, precision significant digits
// (a negative precision counts as 6, 0 as 1). Never throws (an empty text when memory runs out).
std::string FloatToStringGeneral(float value, int precision);
