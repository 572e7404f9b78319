#pragma once

// Paths that a person names on the companion's command line, turned into the catalogue's
// stored form: a full path as it stands, a relative one below the run's source; no "." and no
// empty components, no trailing "/"; encoded as the run's rows are (SQLQuoteEncode, or for a
// run stored before names kept their backslashes, SQLQuoteEncodeBeforeEscape).

#include <string>

// The stored form of `given` in a run of `source` ("" names the source itself).
std::string StoredRunPath(const std::string& source, const std::string& given,
                          bool storedBeforeEscape = false);
// Whether stored path `path` is `folder` itself or lies below it.
bool IsAtOrBelow(const std::string& path, const std::string& folder);
// A full path without "." components, empty components or a trailing "/" ("/" stays "/");
// ".." components stay, for the caller to refuse.
std::string TidyPath(const std::string& path);
// The same for a stored path, split only where the catalogue's separator stands.
std::string TidyStoredPath(const std::string& stored);
