// Numbers as text, rounding, checked conversions and the elapsed-time text.

#include "TestSupport.h"

#include "support/CRuntimeError.h"
#include "support/modNumText.h"

#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

namespace {

// The number of the run-time error that `body` raises, or 0.
template <class Body> int RaisedError(Body&& body) {
    try {
        body();
    } catch (const CRuntimeError& e) {
        return e.Number();
    }
    return 0;
}

TEST(NumText, WritesDecimalWithoutBlankOrTrailingZeros) {
    EXPECT_EQ(NumText(12.5), "12.5");
    EXPECT_EQ(NumText(0), "0");
    EXPECT_EQ(NumText(1536000), "1536000");
    EXPECT_EQ(NumText(-3.25), "-3.25");
    EXPECT_EQ(NumText(0.1), "0.1");
    EXPECT_EQ(NumText(2.0), "2");
}

TEST(NumText, NegativeZeroIsZero) {
    EXPECT_EQ(NumText(-0.0), "0");
}

TEST(NumText, KeepsFifteenSignificantDigits) {
    EXPECT_EQ(NumText(1.0 / 3.0), "0.333333333333333");
    EXPECT_EQ(NumText(2147483647), "2147483647");
    EXPECT_EQ(NumText(123456789012345.0), "123456789012345");
}

// Counts and rates rounded to hundredths are written from their hundredths; every other value
// through the general form. Both must give what the general form with 15 digits gives.
TEST(NumText, HundredthsAreWrittenAsTheGeneralFormWritesThem) {
    const auto general = [](double value) {
        char buf[64];
        const auto end =
            std::to_chars(buf, buf + sizeof buf, value, std::chars_format::general, 15);
        return std::string(buf, end.ptr);
    };
    std::vector<double> values = {
        0.01,    0.05,        0.1,       0.29,      0.3,   1.005,        2.675,           12.34,
        99.99,   100.5,       -0.5,      -0.07,     -12.3, 123456789.12, 9999999999999.0, 1e12,
        1e13,    1e13 - 0.01, 0.1 + 0.2, 1.0 / 3.0, 0.001, 0.015,        4503599627370.5, 1e-4,
        65535.99};
    for (int count = 0; count < 3000; ++count)
        values.push_back(count * 0.01);
    for (int rate = 1; rate < 20000; rate += 7)
        values.push_back(std::nearbyint(rate / 1024000.0 * 1e8 / 7 * 100) / 100);
    for (const double value : values)
        EXPECT_EQ(NumText(value), general(value)) << value;
    EXPECT_EQ(NumText(1234.5), "1234.5");
    EXPECT_EQ(NumText(-0.07), "-0.07");
    EXPECT_EQ(NumText(200000), "200000");
}

TEST(NumText, LargeNumbersUseExponentWithCapitalE) {
    EXPECT_EQ(NumText(1e20), "1E+20");
    EXPECT_EQ(NumText(1234567890123456789.0), "1.23456789012346E+18");
}

TEST(NumTextSigned, NonNegativeNumberGetsALeadingBlank) {
    EXPECT_EQ(NumTextSigned(1024), " 1024");
    EXPECT_EQ(NumTextSigned(0), " 0");
    EXPECT_EQ(NumTextSigned(-5), "-5");
}

TEST(FormatGrouped, ZeroGivesNothingAtAll) {
    EXPECT_EQ(FormatGrouped(0), "");
    EXPECT_EQ(FormatGrouped(0.4), "");
}

TEST(FormatGrouped, GroupsDigitsByCommas) {
    EXPECT_EQ(FormatGrouped(1536000), "1,536,000");
    EXPECT_EQ(FormatGrouped(999), "999");
    EXPECT_EQ(FormatGrouped(1000), "1,000");
    EXPECT_EQ(FormatGrouped(123456), "123,456");
    EXPECT_EQ(FormatGrouped(-1234), "-1,234");
}

TEST(FormatGrouped, RoundsHalvesToTheEvenWholeNumber) {
    EXPECT_EQ(FormatGrouped(1.5), "2");
    EXPECT_EQ(FormatGrouped(2.5), "2");
    EXPECT_EQ(FormatGrouped(1499.5), "1,500");
    EXPECT_EQ(FormatGrouped(0.5), "");
}

TEST(RoundHalfEven, HalvesGoToTheEvenNeighbour) {
    EXPECT_EQ(RoundHalfEven(2.5), 2.0);
    EXPECT_EQ(RoundHalfEven(3.5), 4.0);
    EXPECT_EQ(RoundHalfEven(-2.5), -2.0);
    EXPECT_EQ(RoundHalfEven(2.6), 3.0);
}

TEST(RoundHalfEven, TwoDecimals) {
    EXPECT_EQ(RoundHalfEven(0.125, 2), 0.12);
    EXPECT_EQ(RoundHalfEven(0.375, 2), 0.38);
    EXPECT_EQ(RoundHalfEven(1.5, 2), 1.5);
    EXPECT_EQ(NumText(RoundHalfEven(10240000.0 / 1024000.0 / 3.0, 2)), "3.33");
}

TEST(ToInt16, ConvertsWithinRangeRoundingHalvesToEven) {
    EXPECT_EQ(ToInt16(32767), 32767);
    EXPECT_EQ(ToInt16(-32768), -32768);
    EXPECT_EQ(ToInt16(2.5), 2);
    EXPECT_EQ(ToInt16(-32768.5), -32768);
}

TEST(ToInt16, OutOfRangeRaisesOverflow) {
    EXPECT_EQ(RaisedError([] { ToInt16(32768); }), 6);
    EXPECT_EQ(RaisedError([] { ToInt16(-32769); }), 6);
    EXPECT_EQ(RaisedError([] { ToInt16(32767.5); }), 6);
    EXPECT_EQ(RaisedError([] { ToInt16(std::numeric_limits<double>::quiet_NaN()); }), 6);
}

TEST(ToInt32, OutOfRangeRaisesOverflow) {
    EXPECT_EQ(ToInt32(2147483647.0), 2147483647);
    EXPECT_EQ(ToInt32(-2147483648.0), std::numeric_limits<int32_t>::min());
    EXPECT_EQ(ToInt32(4.5), 4);
    EXPECT_EQ(RaisedError([] { ToInt32(2147483648.0); }), 6);
    EXPECT_EQ(RaisedError([] { ToInt32(-2147483649.0); }), 6);
}

TEST(TextToNumber, ReadsDecimalTextWithBlanksAround) {
    EXPECT_EQ(TextToNumber("12.5"), 12.5);
    EXPECT_EQ(TextToNumber(" 1024 "), 1024.0);
    EXPECT_EQ(TextToNumber("-3"), -3.0);
    EXPECT_EQ(TextToNumber("+7"), 7.0);
    EXPECT_EQ(TextToNumber(".5"), 0.5);
    EXPECT_EQ(TextToNumber("1E+20"), 1e20);
    EXPECT_EQ(TextToNumber(NumText(1.0 / 3.0)), 0.333333333333333);
}

TEST(TextToNumber, TextThatIsNotANumberRaisesTypeMismatch) {
    EXPECT_EQ(RaisedError([] { TextToNumber("abc"); }), 13);
    EXPECT_EQ(RaisedError([] { TextToNumber(""); }), 13);
    EXPECT_EQ(RaisedError([] { TextToNumber("   "); }), 13);
    EXPECT_EQ(RaisedError([] { TextToNumber("12abc"); }), 13);
    EXPECT_EQ(RaisedError([] { TextToNumber("1 2"); }), 13);
    EXPECT_EQ(RaisedError([] { TextToNumber("-"); }), 13);
}

TEST(TextToNumber, InfinityNanAndHexadecimalAreNotNumbers) {
    EXPECT_EQ(RaisedError([] { TextToNumber("inf"); }), 13);
    EXPECT_EQ(RaisedError([] { TextToNumber("-Infinity"); }), 13);
    EXPECT_EQ(RaisedError([] { TextToNumber("nan"); }), 13);
    EXPECT_EQ(RaisedError([] { TextToNumber("0x10"); }), 13);
}

TEST(TextToNumber, NumberTooLargeRaisesOverflow) {
    EXPECT_EQ(RaisedError([] { TextToNumber("1e400"); }), 6);
    EXPECT_EQ(RaisedError([] { TextToNumber("-1e400"); }), 6);
    EXPECT_EQ(RaisedError([] { TextToNumber("1" + std::string(400, '0')); }), 6);
    EXPECT_EQ(RaisedError([] { TextToNumber("0.000" + std::string(400, '0') + "1e+800"); }), 6);
}

TEST(TextToNumber, NumberTooSmallIsZero) {
    EXPECT_EQ(TextToNumber("1e-400"), 0);
    EXPECT_EQ(TextToNumber("-1e-400"), 0);
    EXPECT_EQ(TextToNumber("0." + std::string(400, '0') + "1"), 0);
    EXPECT_EQ(TextToNumber("+2.5"), 2.5);
    EXPECT_EQ(Val("1e999 rest"), 0);
    EXPECT_EQ(Val("  +12.5e1xyz"), 125);
}

TEST(TextToInt16, ReadsAndConvertsWithOverflow) {
    EXPECT_EQ(TextToInt16("10"), 10);
    EXPECT_EQ(RaisedError([] { TextToInt16("40000"); }), 6);
    EXPECT_EQ(RaisedError([] { TextToInt16("ten"); }), 13);
}

TEST(Divide, DividesOrRaisesTheRuntimeErrors) {
    EXPECT_EQ(Divide(7, 2), 3.5);
    EXPECT_EQ(RaisedError([] { Divide(1, 0); }), 11);
    EXPECT_EQ(RaisedError([] { Divide(-1, 0); }), 11);
    EXPECT_EQ(RaisedError([] { Divide(0, 0); }), 6);
}

TEST(FormatElapsed, HoursMinutesSecondsOfTwoDigits) {
    EXPECT_EQ(FormatElapsed(3723), "01:02:03");
    EXPECT_EQ(FormatElapsed(3725), "01:02:05");
    EXPECT_EQ(FormatElapsed(0), "00:00:00");
    EXPECT_EQ(FormatElapsed(4), "00:00:04");
    EXPECT_EQ(FormatElapsed(60), "00:01:00");
}

TEST(FormatElapsed, JustUnderTenHoursIsStillWritten) {
    EXPECT_EQ(FormatElapsed(35999), "09:59:59");
}

TEST(FormatElapsed, TenHoursOrMoreRaisesOverflow) {
    EXPECT_EQ(RaisedError([] { FormatElapsed(36000); }), 6);
    EXPECT_EQ(RaisedError([] { FormatElapsed(86400); }), 6);
    EXPECT_EQ(RaisedError([] { FormatElapsed(std::numeric_limits<int32_t>::max()); }), 6);
}

TEST(TwoDigits, PadsToAtLeastTwoDigits) {
    EXPECT_EQ(TwoDigits(0), "00");
    EXPECT_EQ(TwoDigits(5), "05");
    EXPECT_EQ(TwoDigits(10), "10");
    EXPECT_EQ(TwoDigits(103), "103");
    EXPECT_EQ(TwoDigits(-5), "-05");
}

// The window build's toolkit switches the C library to the user's locale; a German one writes
// and reads a decimal comma. The program's texts must not follow it.
#ifdef _WIN32
TEST(NumText, TextsIgnoreTheUserLocale) {
    const bool switched = std::setlocale(LC_NUMERIC, "German_Germany.1252") != nullptr &&
                          std::string(std::localeconv()->decimal_point) == ",";
    const std::string written = NumText(12.5);
    const std::string grouped = FormatGrouped(1536000.4);
    const std::string signedText = NumTextSigned(0.25);
    const int readError = RaisedError([] { EXPECT_EQ(TextToNumber("12.5"), 12.5); });
    std::setlocale(LC_NUMERIC, "C");
    if (!switched) GTEST_SKIP() << "no German locale with a decimal comma";

    EXPECT_EQ(written, "12.5");
    EXPECT_EQ(grouped, "1,536,000");
    EXPECT_EQ(signedText, " 0.25");
    EXPECT_EQ(readError, 0);
}
#else
TEST(NumText, TextsIgnoreTheUserLocale) {
    ScopedTestEnv env;
    const std::string folder = env.Path("locales");
    const std::string command =
        "localedef -i de_DE -f UTF-8 '" + folder + "/de_DE.UTF-8' >/dev/null 2>&1";
    if (std::system(("mkdir -p '" + folder + "' && " + command).c_str()) != 0)
        GTEST_SKIP() << "cannot build a locale with a decimal comma";
    ::setenv("LOCPATH", folder.c_str(), 1);
    const bool switched = std::setlocale(LC_NUMERIC, "de_DE.UTF-8") != nullptr;
    const std::string written = NumText(12.5);
    const std::string grouped = FormatGrouped(1536000.4);
    const std::string signedText = NumTextSigned(0.25);
    const int readError = RaisedError([] { EXPECT_EQ(TextToNumber("12.5"), 12.5); });
    std::setlocale(LC_NUMERIC, "C");
    ::unsetenv("LOCPATH");
    if (!switched) GTEST_SKIP() << "the built locale cannot be selected";

    EXPECT_EQ(written, "12.5");
    EXPECT_EQ(grouped, "1,536,000");
    EXPECT_EQ(signedText, " 0.25");
    EXPECT_EQ(readError, 0);
}
#endif

} // namespace
