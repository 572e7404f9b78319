#include "support/modNumText.h"

#include "support/CRuntimeError.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <regex>
#include <string_view>

// The texts never follow the user's locale (the window build's toolkit switches the C library
// to it, and a German locale would write and read a decimal comma), so numbers are written
// with std::to_chars and read with std::from_chars, which know no locale.

namespace {
// A decimal text without its sign whose number a double cannot hold: infinite when it is too
// large, 0 when too small, by the decimal order of its first significant digit.
double OutOfRange(std::string_view text) {
    const size_t e = text.find_first_of("eE");
    const std::string_view mantissa = text.substr(0, e);
    long exponent = 0;
    if (e != std::string_view::npos) {
        std::string_view digits = text.substr(e + 1);
        const bool negative = !digits.empty() && digits[0] == '-';
        if (!digits.empty() && (digits[0] == '+' || digits[0] == '-')) digits.remove_prefix(1);
        for (const char c : digits)
            exponent = std::min(exponent * 10 + (c - '0'), 100000L);
        if (negative) exponent = -exponent;
    }
    const size_t point = std::min(mantissa.find('.'), mantissa.size());
    const size_t first = mantissa.find_first_of("123456789");
    if (first == std::string_view::npos) return 0;
    const long order =
        first < point ? static_cast<long>(point - first) - 1 : -static_cast<long>(first - point);
    return order + exponent >= 0 ? std::numeric_limits<double>::infinity() : 0;
}

// The number a decimal text (as IsDecimalText accepts it) stands for; infinite when it is too
// large for a double, 0 when it is too small.
double ReadDecimal(const std::string& text) {
    const char* first = text.data();
    const char* last = first + text.size();
    const bool negative = first != last && *first == '-';
    if (first != last && (*first == '+' || *first == '-')) ++first;
    double value = 0;
    const auto [end, error] = std::from_chars(first, last, value, std::chars_format::general);
    if (error == std::errc::result_out_of_range) value = OutOfRange(std::string_view(first, last));
    return negative ? -value : value;
}

// Optional sign, digits with at most one decimal point, optional exponent: the only texts
// that are numbers. Infinity, NaN and hexadecimal, which the C library reads, are not.
bool IsDecimalText(const std::string& text) {
    static const std::regex decimal(R"([+-]?(\d+\.?\d*|\.\d+)([eE][+-]?\d+)?)");
    return std::regex_match(text, decimal);
}
} // namespace

std::string NumText(double value) {
    if (value == 0) return "0";
    char buf[64];
    // A number of hundredths below 10^13 (a count, a rate rounded to two places) is written
    // from its whole hundredths, as the general format writes it, for a tenth of the cost: a
    // run writes two numbers for every file. Only a value that is exactly the double nearest to
    // those hundredths is such a number; any other goes the general way.
    if (std::fabs(value) < 1e13) {
        const double hundredths = std::nearbyint(value * 100);
        if (hundredths / 100 == value) {
            const auto whole = static_cast<int64_t>(std::fabs(hundredths));
            char* end = buf;
            if (value < 0) *end++ = '-';
            end = std::to_chars(end, buf + sizeof buf, whole / 100).ptr;
            if (const int64_t part = whole % 100; part != 0) {
                *end++ = '.';
                *end++ = static_cast<char>('0' + part / 10);
                if (part % 10 != 0) *end++ = static_cast<char>('0' + part % 10);
            }
            return std::string(buf, end);
        }
    }
    const auto result = std::to_chars(buf, buf + sizeof buf, value, std::chars_format::general, 15);
    std::string text(buf, result.ptr);
    auto e = text.find('e');
    if (e != std::string::npos) {
        // 1e+20 is written 1E+20, as the runtime writes large numbers.
        text[e] = 'E';
        if (text[e + 2] == '0') text.erase(e + 2, 1);
    }
    return text;
}

std::string NumTextSigned(double value) {
    return value < 0 ? NumText(value) : " " + NumText(value);
}

double RoundHalfEven(double value, int decimals) {
    const double scale = std::pow(10.0, decimals);
    return std::nearbyint(value * scale) / scale; // the default rounding mode is to nearest even
}

std::string FormatGrouped(double value) {
    const double whole = RoundHalfEven(value);
    if (whole == 0) return "";
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.0f", std::fabs(whole));
    std::string digits = buf;
    std::string out;
    for (size_t i = 0; i < digits.size(); ++i) {
        if (i > 0 && (digits.size() - i) % 3 == 0) out += ',';
        out += digits[i];
    }
    return whole < 0 ? "-" + out : out;
}

int16_t ToInt16(double value) {
    const double r = RoundHalfEven(value);
    if (!(r >= std::numeric_limits<int16_t>::min() && r <= std::numeric_limits<int16_t>::max()))
        Raise(err::kOverflow);
    return static_cast<int16_t>(r);
}

int32_t ToInt32(double value) {
    const double r = RoundHalfEven(value);
    if (!(r >= std::numeric_limits<int32_t>::min() && r <= std::numeric_limits<int32_t>::max()))
        Raise(err::kOverflow);
    return static_cast<int32_t>(r);
}

double Val(const std::string& text) {
    const size_t begin = text.find_first_not_of(' ');
    if (begin == std::string::npos) return 0;
    // Only the decimal forms: no hexadecimal, infinity or NaN, which the C library also reads.
    static const std::regex leading(R"(^[+-]?(\d+\.?\d*|\.\d+)([eE][+-]?\d+)?)");
    std::smatch match;
    const std::string rest = text.substr(begin);
    if (!std::regex_search(rest, match, leading)) return 0;
    const double value = ReadDecimal(match.str());
    return std::isfinite(value) ? value : 0;
}

double TextToNumber(const std::string& text) {
    const size_t begin = text.find_first_not_of(' ');
    if (begin == std::string::npos) Raise(err::kTypeMismatch);
    const size_t end = text.find_last_not_of(' ') + 1;
    const std::string number = text.substr(begin, end - begin);
    if (!IsDecimalText(number)) Raise(err::kTypeMismatch);
    const double value = ReadDecimal(number);
    if (std::isinf(value)) Raise(err::kOverflow);
    return value;
}

int16_t TextToInt16(const std::string& text) {
    return ToInt16(TextToNumber(text));
}

double Divide(double numerator, double denominator) {
    if (denominator == 0) Raise(numerator == 0 ? err::kOverflow : err::kDivisionByZero);
    return numerator / denominator;
}

std::string TwoDigits(long value) {
    // The "00" pattern pads the digits, not the sign: -5 is written -05.
    const unsigned long magnitude =
        value < 0 ? 0ul - static_cast<unsigned long>(value) : static_cast<unsigned long>(value);
    std::string digits = std::to_string(magnitude);
    if (digits.size() < 2) digits.insert(0, "0");
    return value < 0 ? "-" + digits : digits;
}

std::string FormatElapsed(int32_t seconds) {
    const int32_t hours = seconds / 3600;
    // The hour and minute products are 16-bit: from 10 hours on they overflow.
    if (hours * 3600L > std::numeric_limits<int16_t>::max() ||
        hours * 3600L < std::numeric_limits<int16_t>::min())
        Raise(err::kOverflow);
    const int32_t minutes = (seconds - hours * 3600) / 60;
    const int32_t rest = seconds - hours * 3600 - minutes * 60;
    return TwoDigits(hours) + ":" + TwoDigits(minutes) + ":" + TwoDigits(rest);
}
