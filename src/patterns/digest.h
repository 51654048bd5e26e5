#pragma once
// SHA-256 digests, which name the exact technology and structure files a journal was made with.

#include <string>

namespace KARVEN {

// Returns the SHA-256 digest of `bytes` as 64 lowercase hexadecimal digits. Never fails.
std::string sha256Hex(const std::string& bytes);

// Returns the SHA-256 digest of the file at `path` in the form of sha256Hex. Throws
// std::runtime_error naming the path when it cannot be read.
std::string sha256File(const std::string& path);

}  // namespace KARVEN
