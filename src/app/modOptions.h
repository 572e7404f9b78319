#pragma once

// The user's options as the Setup table keeps them, with the window's design values where the
// store holds nothing: Exclude "*.tmp *.tst", ExDirs "cvs tmp", MaxBackups "10", check boxes
// unticked, log level Basic. Each backup path has its own catalogue and so its own options.

#include <cstdint>
#include <string>
#include <vector>

struct BackupOptions {
    std::string log = "Basic";
    // Check box values as numbers: 0 unticked, 1 ticked.
    int32_t hidden = 0;
    int32_t system = 0;
    int32_t backup = 0;
    int32_t restore = 0;
    int32_t exclRecycler = 0;
    // Skip unchanged files (trust size and modification time): off unless "1" is stored.
    int32_t quickCheck = 0;
    std::string exclude = "*.tmp *.tst";
    std::string exDirs = "cvs tmp";
    std::string maxBackups = "10";
};

// 1 for "Basic", 2 for "Advanced", 3 for "Trace", 1 for any other text (the comparison is exact).
int32_t LogLevelOf(const std::string& word);

// The folder names a run excludes: ExDirs, and " recycler" after them when the Recycle Bin box
// holds 1 (so " recycler" alone when ExDirs is empty).
std::string FoldersToExclude(const BackupOptions& options);

// Reads every option from Setup over the design values; a stored log level other than Basic
// is applied to the logger, as selecting its option button does. A check box whose stored text
// is not a number (a damaged row, "x") is unticked, and a "Problem: " line names its key and
// text.
BackupOptions LoadOptions();

// The source folders, in the catalogue's natural order.
std::vector<std::string> FillSources();
