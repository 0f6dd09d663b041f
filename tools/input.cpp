#include "input.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <filesystem>

#include "exitcode.h"
#include "tempfile.h"
#include "textparser.h"
#include "treefeeder.h"

namespace bmtree::tools {
namespace {

constexpr size_t blockBytes = size_t{1} << 20;
constexpr size_t batchNumbers = size_t{1} << 16;
constexpr size_t headBytes = 16;  // of a bitmap file: mark, item size, item count

std::string shownName(const std::string& file) { return file == "-" ? "standard input" : file; }

bool isRegular(const std::string& file) {
  std::error_code ignored;
  return file != "-" && std::filesystem::is_regular_file(file, ignored);
}

// Bytes of all files together; 0 if one of them does not tell.
uint64_t totalBytes(const std::vector<std::string>& files) {
  uint64_t total = 0;
  for (const std::string& file : files) {
    std::error_code failed;
    const uint64_t size = isRegular(file) ? std::filesystem::file_size(file, failed) : 0;
    if (size == 0 || failed) return 0;
    total += size;
  }
  return total;
}

bool isBitmapMark(std::span<const std::byte> head) {
  constexpr std::array little{std::byte{0}, std::byte{1}, std::byte{2}, std::byte{3}};
  constexpr std::array big{std::byte{3}, std::byte{2}, std::byte{1}, std::byte{0}};
  const auto mark = head.first(std::min(head.size(), little.size()));
  return std::ranges::equal(mark, little) || std::ranges::equal(mark, big);
}

// Items of a sound bitmap file of `bytes` bytes. Its item size is 4 or 8, in the first or the last of four bytes,
// depending on the byte order.
uint64_t bitmapItems(std::span<const std::byte> head, uint64_t bytes) {
  return (bytes - headBytes) / std::to_integer<uint64_t>(head[4] | head[7]);
}

// Line ends in `text`. Runs of at most 255 bytes are counted in one byte, which compilers turn into vector code.
uint64_t countLines(std::string_view text) {
  uint64_t lines = 0;
  for (size_t start = 0; start < text.size(); start += 192) {
    uint8_t inRun = 0;
    for (const char c : text.substr(start, 192)) inRun = static_cast<uint8_t>(inRun + (c == '\n'));
    lines += inRun;
  }
  return lines;
}

// Where in a text a block begins.
struct TextPosition {
  uint64_t offset = 0;     // of the block, in bytes from the start of the file
  uint64_t line = 1;       // its line
  uint64_t lineStart = 0;  // offset of that line

  void pass(std::string_view block) {
    line += countLines(block);
    const size_t last = block.rfind('\n');
    if (last != block.npos) lineStart = offset + last + 1;
    offset += block.size();
  }
};

[[noreturn]] void refuseWord(const std::string& name, TextPosition position, std::string_view before,
                             std::string_view from) {
  position.pass(before);
  const auto wordEnd = std::find_if(from.begin(), from.end(), isSeparator);
  throw ProgramError(exitBadInput, name + ":" + std::to_string(position.line) + ":" +
                                       std::to_string(position.offset - position.lineStart + 1) + ": " +
                                       describeBadNumber({from.begin(), wordEnd}));
}

// Parses a block of whole words in batches.
void parseBlock(std::string_view block, const TextPosition& position, const std::string& name,
                std::vector<uint64_t>& batch, const NumberVisitor& visit) {
  for (std::string_view rest = block; !rest.empty();) {
    const ParseResult result = parseNumbers(rest, batch);
    const auto parsed = static_cast<size_t>(result.end - block.data());
    if (!result.ok) refuseWord(name, position, block.substr(0, parsed), block.substr(parsed));
    if (result.count != 0) visit(std::span(batch).first(result.count));
    rest = block.substr(parsed);
  }
}

// Bytes of `text` up to the end of its last separator.
size_t wholeWords(std::string_view text) {
  const auto last = std::find_if(text.rbegin(), text.rend(), isSeparator);
  return static_cast<size_t>(text.rend() - last);
}

void refuseRaw(const std::string& name, uint64_t index, uint64_t number) {
  throw ProgramError(exitBadInput, name + ": number " + std::to_string(index) + " (at byte " +
                                       std::to_string(index * sizeof number) +
                                       "): " + describeBadNumber(std::to_string(number)));
}

}  // namespace

// A file that is being read, and its first bytes, which were needed to tell its format.
struct InputReader::OpenInput {
  OpenInput(const std::string& wantedPath, InputFormat wantedFormat)
      : path(wantedPath), name(shownName(path)), file(FileDescriptor::forReading(path)), format(wantedFormat) {
    head.resize(headBytes);
    head.resize(file.readFully(head, path));
    if (format != InputFormat::automatic) return;
    format = isBitmapMark(head) ? InputFormat::bitmap : InputFormat::text;
  }

  // Fills `buffer` as far as there is something to read, the head first.
  size_t read(std::span<std::byte> buffer) {
    const size_t old = std::min(head.size(), buffer.size());
    std::copy_n(head.begin(), old, buffer.begin());
    head.erase(head.begin(), head.begin() + static_cast<std::ptrdiff_t>(old));
    return old + file.readFully(buffer.subspan(old), path);
  }

  const std::string path;
  const std::string name;
  const FileDescriptor file;
  InputFormat format;
  std::vector<std::byte> head;
};

InputReader::InputReader(InputFormat format, const std::vector<std::string>& files)
    : format_(format), progress_("loading", "bytes", totalBytes(files)) {}

InputCounts InputReader::addTo(Tree& tree, const std::string& file) {
  OpenInput input(file, format_);
  if (input.format == InputFormat::bitmap) return importBitmap(tree, input);
  InputCounts counts;
  TreeFeeder feeder(tree);
  readNumbers(input, [&](std::span<const uint64_t> numbers) {
    counts.read += numbers.size();
    feeder.take(numbers);
  });
  counts.added = feeder.finish();
  return counts;
}

void InputReader::forEach(const std::string& file, const NumberVisitor& visit) {
  OpenInput input(file, format_);
  if (input.format == InputFormat::bitmap)
    throw ProgramError(exitBadInput, input.name + " is a bitmap file, not text");
  readNumbers(input, visit);
}

void InputReader::readNumbers(OpenInput& input, const NumberVisitor& visit) {
  input.format == InputFormat::raw ? readRaw(input, visit) : readText(input, visit);
}

void InputReader::readText(OpenInput& input, const NumberVisitor& visit) {
  std::vector<char> buffer(blockBytes + parserSlack);
  std::vector<uint64_t> batch(batchNumbers);
  TextPosition position;
  size_t kept = 0;  // bytes of a word that was cut off at the end of the last block
  for (bool atEnd = false; !atEnd;) {
    const size_t wanted = blockBytes - kept;
    const size_t got = input.read(std::as_writable_bytes(std::span(buffer)).subspan(kept, wanted));
    size_t filled = kept + got;
    atEnd = got < wanted;
    if (atEnd) buffer[filled++] = '\n';
    const std::string_view text(buffer.data(), filled);
    const size_t whole = wholeWords(text);
    if (whole == 0) refuseWord(input.name, position, {}, text);
    parseBlock(text.substr(0, whole), position, input.name, batch, visit);
    position.pass(text.substr(0, whole));
    kept = filled - whole;
    std::copy_n(buffer.begin() + static_cast<std::ptrdiff_t>(whole), kept, buffer.begin());
    advance(got);
  }
}

void InputReader::readRaw(OpenInput& input, const NumberVisitor& visit) {
  std::vector<uint64_t> batch(batchNumbers);
  uint64_t index = 0;
  while (const size_t got = input.read(std::as_writable_bytes(std::span(batch)))) {
    if (got % sizeof(uint64_t) != 0) {
      throw ProgramError(exitBadInput, input.name + ": the last number is cut off: the length is no multiple of 8");
    }
    const std::span numbers = std::span(batch).first(got / sizeof(uint64_t));
    if constexpr (std::endian::native == std::endian::big) {
      for (uint64_t& number : numbers) number = __builtin_bswap64(number);
    }
    const auto bad =
        std::find_if(numbers.begin(), numbers.end(), [](uint64_t number) { return number >= numberEnd; });
    if (bad != numbers.end()) refuseRaw(input.name, index + static_cast<uint64_t>(bad - numbers.begin()), *bad);
    visit(numbers);
    index += numbers.size();
    advance(got);
  }
}

InputCounts InputReader::importBitmap(Tree& tree, OpenInput& input) {
  const std::vector<std::byte> head = input.head;
  const auto import = [&](const std::string& path) {
    const uint64_t added = tree.importFile(path);
    const uint64_t bytes = std::filesystem::file_size(path);
    advance(bytes);
    return InputCounts{bitmapItems(head, bytes), added};
  };
  if (isRegular(input.path)) return import(input.path);
  const TempFile copy;
  std::vector<std::byte> block(blockBytes);
  while (const size_t got = input.read(block)) copy.file().writeAll(std::span(block).first(got), copy.path());
  try {
    return import(copy.path());
  } catch (const StoreError& error) {
    std::string message = error.what();
    if (const size_t at = message.find(copy.path()); at != message.npos) {
      message.replace(at, copy.path().size(), input.name);
    }
    throw StoreError(error.code(), message, error.pageId());
  }
}

}  // namespace bmtree::tools
