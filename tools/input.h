// Numbers from files and pipes: decimal text, raw 64-bit little-endian, bitmap files.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "filedescriptor.h"
#include "progress.h"
#include "store.h"

namespace bmtree::tools {

enum class InputFormat {
  automatic,  // a bitmap file if it begins like one, otherwise text
  text,
  raw,
  bitmap,
};

// What came out of a file.
struct InputCounts {
  uint64_t read = 0;   // numbers found, repeats included
  uint64_t added = 0;  // numbers that were not in the tree before
};

// Receives numbers in the order in which a file has them.
using NumberVisitor = std::function<void(std::span<const uint64_t>)>;

// Reads files, "-" being standard input, and shows progress over all of them.
//
// A bad number throws a ProgramError that says where it stands, by line and column in text, by index and byte in raw
// numbers. What came before it has then been handed on: a tree that was being filled must be given up.
class InputReader {
 public:
  InputReader(InputFormat format, const std::vector<std::string>& files);

  // Adds the numbers of `file` to `tree`.
  InputCounts addTo(Tree& tree, const std::string& file);

  // Hands the numbers of `file`, which must not be a bitmap file, to `visit`.
  void forEach(const std::string& file, const NumberVisitor& visit);

  // All files were read.
  void finish() { progress_.finish(); }

 private:
  struct OpenInput;

  void readNumbers(OpenInput& input, const NumberVisitor& visit);
  void readText(OpenInput& input, const NumberVisitor& visit);
  void readRaw(OpenInput& input, const NumberVisitor& visit);
  InputCounts importBitmap(Tree& tree, OpenInput& input);
  void advance(size_t bytes) { progress_.update(bytesDone_ += bytes); }

  const InputFormat format_;
  uint64_t bytesDone_ = 0;
  ProgressLine progress_;
};

}  // namespace bmtree::tools
