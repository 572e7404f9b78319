#pragma once

// File signatures: the text that names a content's store file and fills Files.md5.
//
// The signature follows a fixed block rule: the file is fed to MD5 in pieces of 8193 bytes per
// 8192-byte block (reads run ahead of the 8192 grid) plus one piece of rest + 1 bytes, bytes past
// the end of the file being zero. The result equals the plain MD5 of the file's bytes followed by
// ceil(L / 8192) zero bytes, so it is computed here in one streaming pass with any read size.
// Hex digits are lower case everywhere.

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

inline constexpr int32_t kAlgorithmMD5 = 3;

// HashFile with MD5; the entry point of the backup run and the restore.
std::string MD5File(const std::string& path);
// The signature, or "" after any error (reported under "HashFile").
std::string HashFile(int32_t algorithm, const std::string& path);

// The same signature without the error handler and without letting window messages run, for
// use off the window's thread; nullopt after any error, or once `stop` becomes true.
std::optional<std::string> ComputeSignature(const std::string& path,
                                            const std::atomic<bool>* stop = nullptr);
