#pragma once

// How the companion shows paths, once StoredPathBytes has given a stored path back its real
// bytes. Paths are bytes: a name may hold a new line, a backslash or bytes that are not UTF-8.
// Line-oriented output escapes them so that one entry stays one line (as `ls -b` does); JSON
// output keeps every byte recoverable by writing a byte that is not UTF-8 as a lone surrogate
// U+DC80..U+DCFF (Python's "surrogateescape").

#include <cstdint>
#include <string>

// For a terminal line: "\" as "\\" (on Linux, where it is a name's own character; on Windows
// it is the separator and stands as it is), new line as "\n", tab as "\t", other control characters
// and bytes that are not UTF-8 as "\xNN"; everything else as it stands.
std::string LineText(const std::string& bytes);
// A JSON string literal (with its quotes) holding `bytes`.
std::string JsonString(const std::string& bytes);
// The length of the valid UTF-8 sequence that starts at `at`, or 0 when there is none.
size_t Utf8SequenceLength(const std::string& bytes, size_t at);
// Whether `text` is a whole non-negative decimal number that fits a run's id.
bool IsRunId(const std::string& text);
