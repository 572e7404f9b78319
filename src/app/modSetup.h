#pragma once

// The catalogue's creation and its key/value settings store (table Setup). Each routine opens
// its own short-lived connection to the catalogue of the current backup path.

#include <cstdint>
#include <string>

// Makes the backup folders and, when the catalogue file is missing, creates its tables,
// indexes and pragma (each failure shown in its own critical box) and stores DBVersion "1".
void CreateDB();
// Leaves exactly one row for the key, holding the trimmed value. Errors are not reported.
void SetSetupValue(const std::string& key, const std::string& value);
// The value of the key's first row, or "".
std::string GetSetupValue(const std::string& key);
// 0 for an empty text; otherwise the text as a 16-bit integer (13 when not a number, 6 when
// out of range).
int16_t SetupToInt(const std::string& text);
