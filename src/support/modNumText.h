#pragma once

// Numbers as text and checked conversions, in the conventions the program's texts follow:
// decimal text without a leading blank and without trailing zeros, digit grouping by commas,
// halves rounded to the even neighbour, and run-time errors where a conversion overflows.

#include <cstdint>
#include <string>

// A number "in decimal": no leading blank, '.' as decimal point, up to 15 significant digits.
std::string NumText(double value);

// A number with a leading blank when it is not negative (" 1024"), as the size column holds it.
std::string NumTextSigned(double value);

// The patterns "###,###" and "###,###,###": grouped whole number, nothing at all for 0.
std::string FormatGrouped(double value);

// Rounds to `decimals` places, halves to the even neighbour (0.125 -> 0.12, 2.5 -> 2).
double RoundHalfEven(double value, int decimals = 0);

// Conversions to whole numbers (halves to even); out of range raises error 6.
int16_t ToInt16(double value);
int32_t ToInt32(double value);

// The number a text starts with, as the runtime's Val reads it: leading blanks are skipped,
// reading stops at the first character that cannot continue the number, and a text that does
// not start with one reads 0 ("15x" is 15, "abc" is 0).
double Val(const std::string& text);

// A text read as a number (leading and trailing blanks allowed); raises 13 when it is none.
double TextToNumber(const std::string& text);
int16_t TextToInt16(const std::string& text);

// Division with the runtime's errors: x / 0 raises 11, 0 / 0 raises 6.
double Divide(double numerator, double denominator);

// Whole seconds as hh:mm:ss; raises 6 from 10 hours on (16-bit products).
std::string FormatElapsed(int32_t seconds);

// A whole number written with at least two digits ("00" pattern).
std::string TwoDigits(long value);
