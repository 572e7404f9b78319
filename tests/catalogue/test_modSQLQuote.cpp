// Stored path encoding: apostrophes become "\" on the way into the catalogue and back on the
// way out, except that a text beginning with the character is left entirely as it is; a real
// "\" and the escape byte 0x01 are escaped, so every Linux name comes back as it was, and
// rows written before the escape read as they always did. On Windows, whose separator is "\",
// an apostrophe becomes "/" instead, which no Windows name holds, and nothing needs an escape.

#include "catalogue/modSQLQuote.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <vector>

namespace {

// The escape byte, kept apart so that no hex escape runs into the letter after it.
const std::string E = "\x01";

#ifdef _WIN32

TEST(SQLQuote, EncodeTurnsEveryApostropheIntoSlash) {
    EXPECT_EQ(SQLQuoteEncode("C:\\Users\\bob\\Bob's Files\\a'b.txt"),
              "C:\\Users\\bob\\Bob/s Files\\a/b.txt");
}

TEST(SQLQuote, EncodeLeavesTextWithoutApostropheAlone) {
    EXPECT_EQ(SQLQuoteEncode("C:\\Users\\bob\\plain.txt"), "C:\\Users\\bob\\plain.txt");
    EXPECT_EQ(SQLQuoteEncode(""), "");
}

TEST(SQLQuote, EncodeLeavesTextBeginningWithApostropheUnchanged) {
    EXPECT_EQ(SQLQuoteEncode("'quoted"), "'quoted");
    EXPECT_EQ(SQLQuoteEncode("'a'b'c"), "'a'b'c");
    EXPECT_EQ(SQLQuoteEncode("'"), "'");
}

TEST(SQLQuote, EncodeReplacesApostropheInSecondPosition) {
    EXPECT_EQ(SQLQuoteEncode("a'"), "a/");
    EXPECT_EQ(SQLQuoteEncode("a''b"), "a//b");
}

TEST(SQLQuote, EncodeKeepsBackslashesAndTheEscapeByte) {
    EXPECT_EQ(SQLQuoteEncode("C:\\data\\it's" + E), "C:\\data\\it/s" + E);
    EXPECT_EQ(SQLQuoteEncode("\\\\server\\share\\a.txt"), "\\\\server\\share\\a.txt");
}

TEST(SQLQuote, DecodeTurnsEverySlashIntoApostrophe) {
    EXPECT_EQ(SQLQuoteDecode("C:\\Users\\bob\\Bob/s Files\\a/b.txt"),
              "C:\\Users\\bob\\Bob's Files\\a'b.txt");
}

TEST(SQLQuote, DecodeLeavesTextBeginningWithSlashUnchanged) {
    EXPECT_EQ(SQLQuoteDecode("/a/b"), "/a/b");
    EXPECT_EQ(SQLQuoteDecode("/"), "/");
}

TEST(SQLQuote, DecodeUndoesEncode) {
    const std::vector<std::string> paths = {"C:\\a\\b'c\\d'e",
                                            "C:\\plain",
                                            "",
                                            "C:\\x'",
                                            "C:\\caf\xc3\xa9's",
                                            "D:\\one" + E,
                                            "\\\\server\\share\\it's",
                                            "'quoted",
                                            "'a'b",
                                            "C:\\a''b"};
    for (const std::string& path : paths)
        EXPECT_EQ(SQLQuoteDecode(SQLQuoteEncode(path)), path) << path;
}

TEST(SQLQuote, StoredPathBytesDecodesWhateverTheFirstCharacter) {
    EXPECT_EQ(StoredPathBytes("/s file.txt"), "'s file.txt");
    EXPECT_EQ(StoredPathBytes("C:\\Users\\Bob/s\\it/s.txt"), "C:\\Users\\Bob's\\it's.txt");
    EXPECT_EQ(StoredPathBytes(""), "");
}

TEST(SQLQuote, OtherBytesPassThrough) {
    const std::string odd = "C:\\d\\\xff\xfe\x80 new\nline\ttab\"dq\x02\\back";
    EXPECT_EQ(SQLQuoteEncode(odd), odd);
    EXPECT_EQ(SQLQuoteDecode(odd), odd);
    EXPECT_EQ(StoredPathBytes(odd), odd);
}

#else

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
    // Entirely: its backslashes and escape bytes too.
    EXPECT_EQ(SQLQuoteEncode("'a\\b" + E), "'a\\b" + E);
}

TEST(SQLQuote, EncodeReplacesApostropheInSecondPosition) {
    EXPECT_EQ(SQLQuoteEncode("a'"), "a\\");
    EXPECT_EQ(SQLQuoteEncode("a''b"), "a\\\\b");
}

TEST(SQLQuote, EncodeEscapesARealBackslash) {
    EXPECT_EQ(SQLQuoteEncode("/data/back\\slash's"), "/data/back" + E + "bslash\\s");
    EXPECT_EQ(SQLQuoteEncode("/q\\r.txt"), "/q" + E + "br.txt");
    EXPECT_EQ(SQLQuoteEncode("\\lead"), E + "blead");
}

TEST(SQLQuote, EncodeDoublesTheEscapeByte) {
    EXPECT_EQ(SQLQuoteEncode("/a" + E + "b"), "/a" + E + E + "b");
    EXPECT_EQ(SQLQuoteEncode(E), E + E);
}

TEST(SQLQuote, AnApostropheAndABackslashAreStoredApart) {
    EXPECT_NE(SQLQuoteEncode("/d/q'r.txt"), SQLQuoteEncode("/d/q\\r.txt"));
}

TEST(SQLQuote, DecodeTurnsEveryBackslashIntoApostrophe) {
    EXPECT_EQ(SQLQuoteDecode("/home/bob/Bob\\s Files/a\\b.txt"), "/home/bob/Bob's Files/a'b.txt");
}

TEST(SQLQuote, DecodeLeavesTextBeginningWithBackslashUnchanged) {
    EXPECT_EQ(SQLQuoteDecode("\\a\\b"), "\\a\\b");
    EXPECT_EQ(SQLQuoteDecode("\\"), "\\");
    EXPECT_EQ(SQLQuoteDecode("\\a" + E + "b"), "\\a" + E + "b");
}

TEST(SQLQuote, DecodeUndoesEncode) {
    const std::vector<std::string> paths = {
        "/a/b'c/d'e",    "/plain",          "",
        "/x'",           "/\xff\xfe'\n",    "/back\\slash.txt",
        "/q'r\\s.txt",   "/one" + E,        "/" + E + "b",
        "/" + E + E + E, "/" + E + "\\'",   "/a\\\\b''c",
        "\\lead's",      "'quoted",         "'a'b",
        E + "b",         "/new\nline\\\n'", "/bad\xff\\\xfe" + E};
    for (const std::string& path : paths)
        EXPECT_EQ(SQLQuoteDecode(SQLQuoteEncode(path)), path) << path;
}

TEST(SQLQuote, ATextBeginningWithApostropheReadsItsBackslashesAsApostrophes) {
    // It was stored unchanged, so its "\" cannot be told from an encoded apostrophe.
    EXPECT_EQ(SQLQuoteDecode(SQLQuoteEncode("'a\\b")), "'a'b");
}

TEST(SQLQuote, RowsWrittenBeforeTheEscapeReadAsTheyAlwaysDid) {
    // Then "q'r.txt" and "q\r.txt" were both stored as "q\r.txt".
    EXPECT_EQ(SQLQuoteDecode("/d/q\\r.txt"), "/d/q'r.txt");
    EXPECT_EQ(StoredPathBytes("/d/q\\r.txt"), "/d/q'r.txt");
    // A 0x01 before anything but "b" or 0x01 stays as it was.
    EXPECT_EQ(SQLQuoteDecode("/d/" + E + "a" + E + "\\" + E), "/d/" + E + "a" + E + "'" + E);
}

TEST(SQLQuote, TheFormBeforeTheEscapeEncodesOnlyApostrophes) {
    EXPECT_EQ(SQLQuoteEncodeBeforeEscape("/d/a\\b's" + E), "/d/a\\b\\s" + E);
    EXPECT_EQ(SQLQuoteEncodeBeforeEscape("'a'b"), "'a'b");
    EXPECT_EQ(SQLQuoteEncodeBeforeEscape(""), "");
}

TEST(SQLQuote, StoredPathBytesDecodesWhateverTheFirstCharacter) {
    EXPECT_EQ(StoredPathBytes("\\s file.txt"), "'s file.txt");
    EXPECT_EQ(StoredPathBytes("\\a" + E + "b"), "'a\\");
    EXPECT_EQ(StoredPathBytes(E + "bslash"), "\\slash");
    EXPECT_EQ(StoredPathBytes("/home/a/Bob\\s\\n.txt"), "/home/a/Bob's'n.txt");
    EXPECT_EQ(StoredPathBytes(""), "");
}

TEST(SQLQuote, StoredPathBytesOfEachComponentIsThatComponentOfTheWhole) {
    const std::string path = "/d/Bob's\\x/" + E + "q'\\/'lead";
    const std::string stored = SQLQuoteEncode(path);
    EXPECT_EQ(StoredPathBytes(stored), path);
    std::string joined;
    for (size_t start = 0; start < stored.size();) {
        const size_t slash = std::min(stored.find('/', start), stored.size());
        joined += StoredPathBytes(stored.substr(start, slash - start));
        if (slash < stored.size()) joined += '/';
        start = slash + 1;
    }
    EXPECT_EQ(joined, path);
}

TEST(SQLQuote, OtherBytesPassThrough) {
    const std::string odd = "/d/\xff\xfe\x80 new\nline\ttab\"dq\x02";
    EXPECT_EQ(SQLQuoteEncode(odd), odd);
    EXPECT_EQ(SQLQuoteDecode(odd), odd);
    EXPECT_EQ(StoredPathBytes(odd), odd);
}

#endif

TEST(SQLQuote, LiteralDoublesApostrophesAndKeepsEveryOtherByte) {
    EXPECT_EQ(SQLLiteral("Bob's " + E + "b\\"), "'Bob''s " + E + "b\\'");
}

} // namespace
