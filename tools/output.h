// Where results go: standard output or a new file, and numbers in the forms that both take.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "filedescriptor.h"
#include "store.h"

namespace bmtree::tools {

// A stream of bytes with a buffer, to standard output or to a new file. The file appears under its name when
// finish() is called, complete and durable; until then, and if the command fails, there is nothing under that name,
// or what was there before. A path that leads to a device or a pipe is written to as it is.
class Output {
 public:
  // `path` "-" is standard output. An existing file is replaced only with `overwrite`.
  explicit Output(const std::string& path = "-", bool overwrite = false);
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;
  ~Output();

  // True if what is written to `path` cannot be taken back: standard output, a pipe, a device.
  static bool isStream(const std::string& path);

  void write(std::string_view text) { write(std::as_bytes(std::span(text))); }
  void write(std::span<const std::byte> bytes);

  // Writes out what is buffered and gives the file its name.
  void finish();

  bool isTerminal() const;

  // Refuses, as a mistake of the user, to send what is not text to a terminal.
  void requireBinaryWelcome() const;

 private:
  void flush();
  void publish();

  const std::string path_;
  const bool overwrite_;
  const bool stream_;
  std::string temporary_;
  bool finished_ = false;
  FileDescriptor file_;
  std::vector<std::byte> buffer_;
};

// Forms in which numbers leave the program: decimal text, 64-bit little-endian, bitmap files of both widths.
enum class NumberFormat { text, raw, bitmap, bitmap32 };

// Writes numbers to an output as text or raw.
class NumberWriter {
 public:
  // Text has `perLine` numbers to a line, with commas between them.
  NumberWriter(Output& output, NumberFormat format, uint64_t perLine = 1)
      : output_(output), raw_(format == NumberFormat::raw), perLine_(perLine) {}

  void write(std::span<const uint64_t> numbers);
  // Ends the last line.
  void finish();

 private:
  void writeText(std::span<const uint64_t> numbers);
  void writeRaw(std::span<const uint64_t> numbers);

  Output& output_;
  const bool raw_;
  const uint64_t perLine_;
  uint64_t onLine_ = 0;
  std::vector<char> text_;
};

// Writes all numbers of `tree` to `path` ("-" is standard output) in `format`. Progress is shown on a terminal.
void writeTree(const Tree& tree, const std::string& path, NumberFormat format, bool overwrite);

}  // namespace bmtree::tools
