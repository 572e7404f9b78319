// How the companion writes paths: escaped lines, JSON that keeps every byte, and the UTF-8
// rules both rely on.

#include "cli/modQrvText.h"

#include <gtest/gtest.h>

namespace {

TEST(QrvText, LineTextEscapesWhatWouldBreakALine) {
#ifdef _WIN32
    // The separator of every Windows path stands as it is.
    EXPECT_EQ(LineText("a\nb\tC:\\d"), "a\\nb\\tC:\\d");
#else
    EXPECT_EQ(LineText("a\nb\tc\\d"), "a\\nb\\tc\\\\d");
#endif
    EXPECT_EQ(LineText(std::string("nul\0end", 7)), "nul\\x00end");
    EXPECT_EQ(LineText("cr\r del\x7f esc\x1b"), "cr\\x0d del\\x7f esc\\x1b");
    EXPECT_EQ(LineText("bad\xff\xfe.bin"), "bad\\xff\\xfe.bin");
    EXPECT_EQ(LineText("caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80"),
              "caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80");
    EXPECT_EQ(LineText("cut \xe2\x82"), "cut \\xe2\\x82");
}

TEST(QrvText, JsonStringKeepsEveryByteRecoverable) {
    EXPECT_EQ(JsonString("plain"), "\"plain\"");
    EXPECT_EQ(JsonString("q\"b\\n\nt\tr\r"), "\"q\\\"b\\\\n\\nt\\tr\\r\"");
    EXPECT_EQ(JsonString("\x01\x1f"), "\"\\u0001\\u001f\"");
    EXPECT_EQ(JsonString("bad\xff\xfe"), "\"bad\\udcff\\udcfe\"");
    EXPECT_EQ(JsonString("caf\xc3\xa9"), "\"caf\xc3\xa9\"");
    EXPECT_EQ(JsonString("\xc0\xaf"), "\"\\udcc0\\udcaf\""); // an overlong "/"
}

TEST(QrvText, Utf8SequencesFollowTheStandardsRanges) {
    EXPECT_EQ(Utf8SequenceLength("a", 0), 1u);
    EXPECT_EQ(Utf8SequenceLength("\xc3\xa9", 0), 2u);
    EXPECT_EQ(Utf8SequenceLength("\xe2\x82\xac", 0), 3u);
    EXPECT_EQ(Utf8SequenceLength("\xf4\x8f\xbf\xbf", 0), 4u); // U+10FFFF
    EXPECT_EQ(Utf8SequenceLength("\xf4\x90\x80\x80", 0), 0u); // above U+10FFFF
    EXPECT_EQ(Utf8SequenceLength("\xed\xa0\x80", 0), 0u);     // a surrogate
    EXPECT_EQ(Utf8SequenceLength("\xe0\x80\xaf", 0), 0u);     // overlong
    EXPECT_EQ(Utf8SequenceLength("\xc1\xbf", 0), 0u);         // overlong
    EXPECT_EQ(Utf8SequenceLength("\x80", 0), 0u);             // a lone continuation
    EXPECT_EQ(Utf8SequenceLength("\xe2\x82", 0), 0u);         // cut short
    EXPECT_EQ(Utf8SequenceLength("\xe2\x28\xa1", 0), 0u);     // a bad second byte
}

TEST(QrvText, ARunIdIsAWholeNumber) {
    EXPECT_TRUE(IsRunId("1"));
    EXPECT_TRUE(IsRunId("000123"));
    EXPECT_FALSE(IsRunId(""));
    EXPECT_FALSE(IsRunId("-1"));
    EXPECT_FALSE(IsRunId("1 OR 1=1"));
    EXPECT_FALSE(IsRunId("12345678901234567890"));
}

} // namespace
