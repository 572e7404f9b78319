// Stored path encoding: apostrophes become "\" on the way into the catalogue and back on the
// way out, except that a text beginning with the character is left entirely as it is.

#include "catalogue/modSQLQuote.h"

#include <gtest/gtest.h>

namespace {

TEST(SQLQuote, EncodeTurnsEveryApostropheIntoBackslash) {
    EXPECT_EQ(SQLQuoteEncode("/home/bob/Bob's Files/a'b.txt"), "/home/bob/Bob\\s Files/a\\b.txt");
}

TEST(SQLQuote, EncodeLeavesTextWithoutApostropheAlone) {
    EXPECT_EQ(SQLQuoteEncode("/home/bob/plain.txt"), "/home/bob/plain.txt");
    EXPECT_EQ(SQLQuoteEncode(""), "");
}

TEST(SQLQuote, EncodeLeavesTextBeginningWithApostropheUnchanged) {
    EXPECT_EQ(SQLQuoteEncode("'quoted"), "'quoted");
    EXPECT_EQ(SQLQuoteEncode("'a'b'c"), "'a'b'c");
    EXPECT_EQ(SQLQuoteEncode("'"), "'");
}

TEST(SQLQuote, EncodeReplacesApostropheInSecondPosition) {
    EXPECT_EQ(SQLQuoteEncode("a'"), "a\\");
    EXPECT_EQ(SQLQuoteEncode("a''b"), "a\\\\b");
}

TEST(SQLQuote, EncodeKeepsExistingBackslashes) {
    EXPECT_EQ(SQLQuoteEncode("/data/back\\slash's"), "/data/back\\slash\\s");
}

TEST(SQLQuote, DecodeTurnsEveryBackslashIntoApostrophe) {
    EXPECT_EQ(SQLQuoteDecode("/home/bob/Bob\\s Files/a\\b.txt"), "/home/bob/Bob's Files/a'b.txt");
}

TEST(SQLQuote, DecodeLeavesTextBeginningWithBackslashUnchanged) {
    EXPECT_EQ(SQLQuoteDecode("\\a\\b"), "\\a\\b");
    EXPECT_EQ(SQLQuoteDecode("\\"), "\\");
}

TEST(SQLQuote, DecodeUndoesEncode) {
    for (const std::string path : {"/a/b'c/d'e", "/plain", "", "/x'", "/\xff\xfe'\n"})
        EXPECT_EQ(SQLQuoteDecode(SQLQuoteEncode(path)), path) << path;
}

TEST(SQLQuote, NameHoldingBackslashComesBackWithApostrophe) {
    EXPECT_EQ(SQLQuoteDecode(SQLQuoteEncode("/data/a\\b")), "/data/a'b");
}

TEST(SQLQuote, OtherBytesPassThrough) {
    const std::string odd = "/d/\xff\xfe\x80 new\nline\ttab\"dq";
    EXPECT_EQ(SQLQuoteEncode(odd), odd);
    EXPECT_EQ(SQLQuoteDecode(odd), odd);
}

} // namespace
