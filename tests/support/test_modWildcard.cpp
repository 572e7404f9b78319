// Shell wildcards match as the shell's own matcher does; on Linux every case is also asked of
// the C library's fnmatch, so the two cannot drift apart.

#include "support/modWildcard.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>
#ifndef _WIN32
#include <fnmatch.h>
#endif

namespace {

struct Case {
    std::string pattern;
    std::string text;
    bool matches;
};

const std::vector<Case> kCases = {
    {"*", "", true},
    {"*", "anything at all", true},
    {"*.*", "report.pdf", true},
    {"*.*", "README", false},
    {"*.QRV", "0123abcd.QRV", true},
    {"*.QRV", "0123abcd.QRV.tmp", false},
    {"*.QRV", ".QRV", true},
    {"?", "a", true},
    {"?", "", false},
    {"?", "ab", false},
    {"a?c", "abc", true},
    {"a*c", "ac", true},
    {"a*c", "abbbbc", true},
    {"a*c", "abbbbd", false},
    {"*b*b*", "abcabd", true},
    {"*/*", "folder/file", true}, // "*" takes "/" too, as the shell's matcher without flags
    {"[abc]x", "bx", true},
    {"[abc]x", "dx", false},
    {"[a-c]x", "cx", true},
    {"[!a-c]x", "dx", true},
    {"[!a-c]x", "ax", false},
    {"[^a-c]x", "ax", false},
    {"[]]", "]", true},
    {"[!]]", "a", true},
    {"[a-]", "-", true},
    {"[", "[", true},
    {"[ab", "[ab", true},
    {"\\*", "*", true},
    {"\\*", "a", false},
    {"it's*", "it's mine.txt", true},
    {"caf\xc3\xa9*", "caf\xc3\xa9 menu", true},
    {"*\xff", "bad\xff", true},
    {"**a", "bba", true},
    {"a*", "b", false},
};

TEST(WildcardMatch, MatchesAsTheShellDoes) {
    for (const Case& c : kCases)
        EXPECT_EQ(WildcardMatch(c.pattern, c.text), c.matches)
            << "pattern \"" << c.pattern << "\" text \"" << c.text << "\"";
}

#ifndef _WIN32
TEST(WildcardMatch, AgreesWithTheCLibrarysMatcher) {
    for (const Case& c : kCases)
        EXPECT_EQ(WildcardMatch(c.pattern, c.text),
                  ::fnmatch(c.pattern.c_str(), c.text.c_str(), 0) == 0)
            << "pattern \"" << c.pattern << "\" text \"" << c.text << "\"";
}
#endif

// A search finds a part of a name, or a whole name by wildcards, in either case.
TEST(NameMatches, FindsAPartOrAWholeNameByWildcardsInEitherCase) {
    EXPECT_TRUE(NameMatches("report", "Annual REPORT 2026.pdf"));
    EXPECT_TRUE(NameMatches("", "anything"));
    EXPECT_FALSE(NameMatches("reports", "report.pdf"));
    EXPECT_TRUE(NameMatches("*.JPG", "holiday.jpg"));
    EXPECT_FALSE(NameMatches("*.jpg", "holiday.jpg.txt"));
    EXPECT_TRUE(NameMatches("file?.txt", "File2.txt"));
    EXPECT_FALSE(NameMatches("file?.txt", "file10.txt"));
    EXPECT_TRUE(NameMatches("[ab]*", "Bob's notes"));
    EXPECT_TRUE(NameMatches("\xff", "a\xff"
                                    "b")); // bytes are bytes
    EXPECT_TRUE(NameMatches("caf\xc3\xa9", "Caf\xc3\xa9 menu"));
}

} // namespace
