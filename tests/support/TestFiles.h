#pragma once
// Whole-file reads and writes and reproducible random contents for tests.

#include <cstddef>
#include <string>

namespace BcastTest {

/// The file's bytes; empty when it cannot be read.
std::string ReadWholeFile(const std::string& path);
/// Replaces the file with `data`.
void WriteWholeFile(const std::string& path, const std::string& data);
/// `size` pseudo-random bytes, the same for the same `variant`.
std::string RandomBytes(std::size_t size, unsigned variant);

}  // namespace BcastTest
