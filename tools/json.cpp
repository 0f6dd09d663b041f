#include "json.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <utility>

#include "readable.h"

namespace bmtree::tools {
namespace {

// `text` in quotes. Bytes that are not UTF-8 and control characters come out as escapes, so that the result is
// valid JSON whatever a name holds.
std::string quoted(std::string_view text) {
  std::string result = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      result += '\\';
      result += c;
    } else if (byte < 0x20 || byte == 0x7f) {
      std::array<char, 8> escape;
      std::snprintf(escape.data(), escape.size(), "\\u%04x", byte);
      result += escape.data();
    } else {
      result += c;
    }
  }
  return result + '"';
}

}  // namespace

JsonWriter& JsonWriter::key(std::string_view name) {
  startItem();
  text_ += quoted(name) + ": ";
  afterKey_ = true;
  return *this;
}

void JsonWriter::value(std::string_view text) {
  // Only what printable() left alone is valid UTF-8 to the end.
  const bool plain = printable(text, text.size() + 1) == text;
  item(quoted(plain ? std::string(text) : printable(text, 4 * text.size() + 1)));
}

void JsonWriter::value(double number) {
  std::array<char, 64> digits;
  if (!std::isfinite(number)) return null();
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
  item(std::string_view(digits.data(), static_cast<size_t>(end - digits.data())));
}

void JsonWriter::open(char opening, char closing) {
  startItem();
  text_ += opening;
  levels_.push_back({closing});
}

void JsonWriter::end() {
  const Level level = levels_.back();
  levels_.pop_back();
  if (!level.empty) text_ += "\n" + std::string(2 * levels_.size(), ' ');
  text_ += level.closing;
  if (levels_.empty()) text_ += "\n";
}

std::string JsonWriter::take() { return std::exchange(text_, {}); }

void JsonWriter::item(std::string_view text) {
  startItem();
  text_ += text;
}

void JsonWriter::startItem() {
  if (std::exchange(afterKey_, false) || levels_.empty()) return;
  if (!std::exchange(levels_.back().empty, false)) text_ += ',';
  text_ += "\n" + std::string(2 * levels_.size(), ' ');
}

}  // namespace bmtree::tools
