// Names in the order a person reads them: numbers by value, letters without regard to case,
// every different name distinct.

#include "support/modNaturalOrder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using Names = std::vector<std::string>;

Names Sorted(Names names) {
    std::sort(names.begin(), names.end(),
              [](const std::string& a, const std::string& b) { return NaturalLess(a, b); });
    return names;
}

TEST(NaturalOrder, NumbersGoByTheirValue) {
    EXPECT_EQ(Sorted({"file10", "file2", "file1", "file02", "file"}),
              (Names{"file", "file1", "file02", "file2", "file10"}));
    EXPECT_EQ(Sorted({"IMG_100.jpg", "IMG_99.jpg", "IMG_1000.jpg"}),
              (Names{"IMG_99.jpg", "IMG_100.jpg", "IMG_1000.jpg"}));
    EXPECT_EQ(Sorted({"v1.10", "v1.9", "v1.2"}), (Names{"v1.2", "v1.9", "v1.10"}));
}

TEST(NaturalOrder, LettersGoWithoutRegardToCaseAndNumbersBeforeLetters) {
    EXPECT_EQ(Sorted({"banana", "Apple", "cherry", "apple"}),
              (Names{"Apple", "apple", "banana", "cherry"}));
    EXPECT_EQ(Sorted({"b", "2", "a"}), (Names{"2", "a", "b"}));
}

TEST(NaturalOrder, DifferentNamesNeverTie) {
    const Names names{"a", "A", "a0", "a00", "a\xff", "a\n", "99999999999999999999"};
    for (const std::string& a : names)
        for (const std::string& b : names) {
            if (a == b) continue;
            EXPECT_NE(NaturalLess(a, b), NaturalLess(b, a)) << a << " " << b;
        }
    EXPECT_FALSE(NaturalLess("same", "same"));
}

} // namespace
