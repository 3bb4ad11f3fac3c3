// Value formatters: one small object per value that turns an int, float or text into text by
// a printf-like format text. Only the width (and for floats the precision) is read from the
// format text; the fill is always '0' and the conversion letter is never looked at.
#pragma once

#include <memory>
#include <string>

class CFormatter {
public:
    CFormatter(std::string format, std::string separator)
        : m_strFormat(std::move(format)), m_strSeparator(std::move(separator)) {}
    virtual ~CFormatter() = default;
    // The formatted value; never fails, never throws.
    virtual std::string format() = 0;

    std::string m_strFormat;
    std::string m_strSeparator;  // appended by the caller after format(); not read here
};

class IntFormatter : public CFormatter {
public:
    IntFormatter(int value, std::string format, std::string separator)
        : CFormatter(std::move(format), std::move(separator)), m_value(value) {}
    ~IntFormatter() override = default;
    std::string format() override;

    int m_value;
};

class FloatFormatter : public CFormatter {
public:
    FloatFormatter(float value, std::string format, std::string separator)
        : CFormatter(std::move(format), std::move(separator)), m_value(value) {}
    ~FloatFormatter() override = default;
    std::string format() override;

    float m_value;
};

class StringFormatter : public CFormatter {
public:
    StringFormatter(std::string value, std::string format, std::string separator)
        : CFormatter(std::move(format), std::move(separator)), m_value(std::move(value)) {}
    ~StringFormatter() override = default;
    std::string format() override { return m_value; }

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
// (a negative precision counts as 6, 0 as 1).
std::string FloatToStringGeneral(float value, int precision);
