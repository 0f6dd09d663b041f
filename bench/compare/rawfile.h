// Files of plain bytes: how the competitors that have no file format of their own write and read a set.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

// Writes `bytes` to a new file, or ends the program.
void writeBytes(const std::string& path, std::span<const char> bytes);
// The whole of a file.
std::vector<char> readBytes(const std::string& path);

void writeNumbers(const std::string& path, std::span<const uint64_t> numbers);
std::vector<uint64_t> readNumbers(const std::string& path);

uint64_t fileBytes(const std::string& path);
