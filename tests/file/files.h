// Bitmap files for tests: bytes written and read by hand, and a fixture with the test host's directory.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "bitmap.h"
#include "support/treemodel.h"

using FileBytes = std::vector<unsigned char>;

// How a file is written: the width of an item, and whether in the other byte order than this machine's.
struct FileForm {
  unsigned itemSize = 8;
  bool swapped = false;
};

inline void appendNumber(FileBytes& bytes, uint64_t value, size_t width, bool swapped) {
  unsigned char raw[8];
  std::memcpy(raw, &value, sizeof raw);  // this machine is little-endian: the low bytes come first
  for (size_t i = 0; i < width; ++i) bytes.push_back(raw[swapped ? width - 1 - i : i]);
}

inline FileBytes headerBytes(uint64_t itemSize, uint64_t itemCount, bool swapped = false,
                             uint64_t mark = 0x03020100) {
  FileBytes bytes;
  appendNumber(bytes, mark, 4, swapped);
  appendNumber(bytes, itemSize, 4, swapped);
  appendNumber(bytes, itemCount, 8, swapped);
  return bytes;
}

inline FileBytes fileOf(const std::vector<uint64_t>& items, FileForm form = {}) {
  FileBytes bytes = headerBytes(form.itemSize, items.size(), form.swapped);
  for (const uint64_t item : items) appendNumber(bytes, item, form.itemSize, form.swapped);
  return bytes;
}

inline std::vector<uint64_t> ascendingBits(uint64_t first, uint64_t count, uint64_t step) {
  std::vector<uint64_t> bits;
  for (uint64_t i = 0; i < count; ++i) bits.push_back(first + i * step);
  return bits;
}

inline void putFile(const std::string& name, const FileBytes& bytes) {
  std::FILE* file = std::fopen(name.c_str(), "wb");
  ASSERT_NE(file, nullptr) << name;
  const size_t written = bytes.empty() ? 0 : std::fwrite(bytes.data(), 1, bytes.size(), file);
  EXPECT_EQ(written, bytes.size());
  std::fclose(file);
}

// The bytes of a file; none if it is not there.
inline FileBytes getFile(const std::string& name) {
  FileBytes bytes;
  std::FILE* file = std::fopen(name.c_str(), "rb");
  if (file == nullptr) return bytes;
  for (int byte; (byte = std::fgetc(file)) != EOF;) bytes.push_back(static_cast<unsigned char>(byte));
  std::fclose(file);
  return bytes;
}

inline bool fileExists(const std::string& name) {
  std::FILE* file = std::fopen(name.c_str(), "rb");
  if (file != nullptr) std::fclose(file);
  return file != nullptr;
}

// Open descriptors of this process.
int openDescriptors();

// Adds to the tree fixture: a fresh file name, what an operation printed, and a check that it leaves neither buffers
// nor descriptors.
template <class Base>
class FileTestOf : public Base {
 protected:
  std::string name = this->host.tempFileName();
  int err = -99;

  char* fileName() { return name.data(); }

  int read(RepTreeRootSType& root) {
    return watched([&] { return BmReadFromFile(&this->host, fileName(), &root, &err); });
  }
  int write(RepTreeRootSType& root) {
    return watched([&] { return BmWriteToFile(&this->host, fileName(), &root, &err); });
  }
  int writeKeeping(const RepTreeRootSType& root) {
    return watched([&] { return BmWriteToFileNonDestructive(&this->host, fileName(), &root, &err); });
  }

  // Runs `operation`; what it printed on standard error is in `messages`, one line each.
  template <class Operation>
  int watched(Operation operation) {
    const int open = openDescriptors();
    const size_t logCalls = this->host.removeLogCalls().size();
    ::testing::internal::CaptureStderr();
    const int result = operation();
    messages = linesOf(::testing::internal::GetCapturedStderr());
    EXPECT_EQ(openDescriptors(), open) << "a descriptor was left open or closed twice";
    EXPECT_EQ(this->host.buffersOutstanding(), 0U);
    // every message is followed by a request to keep the log
    EXPECT_EQ(this->host.removeLogCalls().size() - logCalls, messages.size());
    for (const int remove : this->host.removeLogCalls()) EXPECT_EQ(remove, 0);
    return result;
  }

  std::vector<std::string> messages;

 private:
  // "\nfirst\n\nsecond\n" to its two lines.
  static std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    for (size_t at = 0; at < text.size();) {
      EXPECT_EQ(text[at], '\n');
      const size_t end = text.find('\n', at + 1);
      if (end == std::string::npos) {
        ADD_FAILURE() << "unfinished line: " << text;
        break;
      }
      lines.push_back(text.substr(at + 1, end - at - 1));
      at = end + 1;
    }
    return lines;
  }
};

using Messages = std::vector<std::string>;
using FileTest = FileTestOf<TreeFixture>;
using FileTreeTest = FileTestOf<TreeTest>;
