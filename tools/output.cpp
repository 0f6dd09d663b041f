#include "output.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <charconv>
#include <filesystem>

#include "exitcode.h"
#include "progress.h"
#include "tempfile.h"
#include "unfinishedstore.h"

namespace bmtree::tools {
namespace {

constexpr size_t bufferBytes = 256 << 10;
constexpr size_t chunkNumbers = 16384;
constexpr size_t digitsAtMost = 20;
constexpr unsigned namesAtMost = 1000;  // that are tried for a file which is not complete

void requireFree(const std::string& path) {
  if (std::filesystem::exists(std::filesystem::symlink_status(path))) {
    throw ProgramError(exitInTheWay, path + " exists (--force replaces it)");
  }
}

// A new file beside `path`; `name` becomes its name. Whatever stands under a name already, a file of somebody else or
// a link that leads elsewhere, is left alone.
FileDescriptor makePartFile(const std::string& path, std::string& name) {
  const std::string stem = path + ".part-" + std::to_string(::getpid()) + "-";
  for (unsigned suffix = 0;; ++suffix) {
    name = stem + std::to_string(suffix);
    FileDescriptor file(::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666));
    if (file.get() >= 0) return file;
    if (errno != EEXIST || suffix == namesAtMost) throwSystemFailure(errno, path);
  }
}

// Opens what is written to; `temporary` becomes the name of the file until it is complete.
FileDescriptor openForWriting(const std::string& path, bool stream, bool overwrite, std::string& temporary) {
  if (path == "-") return FileDescriptor(::dup(STDOUT_FILENO));
  if (!stream && !overwrite) requireFree(path);
  if (!stream) return makePartFile(path, temporary);
  FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
  if (file.get() < 0) throwSystemFailure(errno, path);
  return file;
}

void copyFile(const std::string& path, Output& output) {
  const FileDescriptor file = FileDescriptor::forReading(path);
  std::vector<std::byte> block(bufferBytes);
  while (const size_t got = file.readFully(block, path)) output.write(std::span(block).first(got));
}

void writeBitmapFile(const Tree& tree, const std::string& path, FileWidth width, bool overwrite) {
  if (!Output::isStream(path)) {
    if (!overwrite) requireFree(path);
    return tree.exportFile(path, width, overwrite);
  }
  Output output(path);
  output.requireBinaryWelcome();
  const TempFile file;
  tree.exportFile(file.path(), width, true);
  copyFile(file.path(), output);
  output.finish();
}

}  // namespace

Output::Output(const std::string& path, bool overwrite)
    : path_(path),
      overwrite_(overwrite),
      stream_(isStream(path)),
      file_(openForWriting(path, stream_, overwrite, temporary_)) {
  buffer_.reserve(bufferBytes);
}

Output::~Output() {
  if (!stream_ && !finished_) ::unlink(temporary_.c_str());
}

bool Output::isStream(const std::string& path) {
  std::error_code ignored;
  const auto status = std::filesystem::status(path, ignored);
  return path == "-" || (std::filesystem::exists(status) && std::filesystem::is_other(status));
}

void Output::write(std::span<const std::byte> bytes) {
  if (buffer_.size() + bytes.size() > bufferBytes) flush();
  if (bytes.size() > bufferBytes) return file_.writeAll(bytes, path_);
  buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
}

void Output::finish() {
  flush();
  if (!stream_) publish();
  finished_ = true;
}

bool Output::isTerminal() const { return ::isatty(file_.get()) != 0; }

void Output::requireBinaryWelcome() const {
  if (isTerminal()) {
    throw ProgramError(exitUsage, "this is not text and would garble the terminal: name a file, or pipe it on");
  }
}

void Output::flush() {
  file_.writeAll(buffer_, path_);
  buffer_.clear();
}

void Output::publish() {
  if (::fdatasync(file_.get()) != 0) throwSystemFailure(errno, path_);
  const int failed =
      overwrite_ ? ::rename(temporary_.c_str(), path_.c_str()) : ::link(temporary_.c_str(), path_.c_str());
  if (failed != 0) throwSystemFailure(errno, path_);
  if (!overwrite_) ::unlink(temporary_.c_str());
  syncFolderOf(path_);
}

void NumberWriter::write(std::span<const uint64_t> numbers) {
  while (!numbers.empty()) {
    const auto part = numbers.first(std::min(numbers.size(), chunkNumbers));
    raw_ ? writeRaw(part) : writeText(part);
    numbers = numbers.subspan(part.size());
  }
}

void NumberWriter::finish() {
  if (onLine_ != 0) output_.write("\n");
  onLine_ = 0;
}

void NumberWriter::writeText(std::span<const uint64_t> numbers) {
  text_.resize(numbers.size() * (digitsAtMost + 2));
  char* end = text_.data();
  for (const uint64_t number : numbers) {
    if (onLine_ != 0) *end++ = ',';
    end = std::to_chars(end, end + digitsAtMost, number).ptr;
    if (++onLine_ == perLine_) {
      *end++ = '\n';
      onLine_ = 0;
    }
  }
  output_.write(std::string_view(text_.data(), static_cast<size_t>(end - text_.data())));
}

void NumberWriter::writeRaw(std::span<const uint64_t> numbers) {
  if constexpr (std::endian::native == std::endian::little) return output_.write(std::as_bytes(numbers));
  text_.clear();
  for (const uint64_t number : numbers) {
    for (int shift = 0; shift < 64; shift += 8) text_.push_back(static_cast<char>(number >> shift));
  }
  output_.write(std::string_view(text_.data(), text_.size()));
}

void writeTree(const Tree& tree, const std::string& path, NumberFormat format, bool overwrite) {
  if (format == NumberFormat::bitmap) return writeBitmapFile(tree, path, FileWidth::eight, overwrite);
  if (format == NumberFormat::bitmap32) return writeBitmapFile(tree, path, FileWidth::four, overwrite);
  Output output(path, overwrite);
  if (format == NumberFormat::raw) output.requireBinaryWelcome();
  ProgressLine progress("writing", "numbers", tree.count(), !output.isTerminal());
  NumberWriter writer(output, format);
  std::vector<uint64_t> chunk(chunkNumbers);
  Cursor cursor = tree.numbers();
  uint64_t done = 0;
  while (const size_t count = cursor.next(chunk)) {
    writer.write(std::span(chunk).first(count));
    progress.update(done += count);
  }
  writer.finish();
  output.finish();
}

}  // namespace bmtree::tools
