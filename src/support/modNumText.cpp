#include "support/modNumText.h"

#include "support/CRuntimeError.h"

#include <cerrno>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <regex>

// The texts never follow the user's locale (the window build's toolkit switches the C library
// to it, and a German locale would write and read a decimal comma), so numbers are written
// with std::to_chars and read with the "C" locale.

namespace {
locale_t CLocale() {
    static const locale_t c = ::newlocale(LC_ALL_MASK, "C", locale_t{});
    return c;
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
    const double value = ::strtod_l(match.str().c_str(), nullptr, CLocale());
    return std::isfinite(value) ? value : 0;
}

double TextToNumber(const std::string& text) {
    const size_t begin = text.find_first_not_of(' ');
    if (begin == std::string::npos) Raise(err::kTypeMismatch);
    const size_t end = text.find_last_not_of(' ') + 1;
    const std::string number = text.substr(begin, end - begin);
    if (!IsDecimalText(number)) Raise(err::kTypeMismatch);
    errno = 0;
    const double value = ::strtod_l(number.c_str(), nullptr, CLocale());
    if (errno == ERANGE && std::isinf(value)) Raise(err::kOverflow);
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
