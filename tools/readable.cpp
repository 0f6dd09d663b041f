#include "readable.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace bmtree::tools {
namespace {

// `number` with three significant digits, at least 1.
std::string threeDigits(double number) { return fixed(number, number < 9.995 ? 2 : number < 99.95 ? 1 : 0); }

bool isControl(unsigned char c) { return c < 0x20 || c == 0x7f; }

// Length of the UTF-8 character at the start of `text`; 0 if there is none.
size_t characterLength(std::string_view text) {
  const auto lead = static_cast<unsigned char>(text[0]);
  const size_t length = lead < 0x80 ? 1 : lead < 0xc2 ? 0 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : lead < 0xf5 ? 4 : 0;
  if (length == 0 || length > text.size()) return 0;
  const auto isTail = [](char c) { return (static_cast<unsigned char>(c) & 0xc0) == 0x80; };
  return std::all_of(text.begin() + 1, text.begin() + static_cast<std::ptrdiff_t>(length), isTail) ? length : 0;
}

void padTo(std::string& line, size_t width) { line.append(width - std::min(width, displayWidth(line)), ' '); }

}  // namespace

std::string grouped(uint64_t number) {
  std::string text = std::to_string(number);
  for (size_t end = text.size(); end > 3;) text.insert(end -= 3, ",");
  return text;
}

std::string counted(uint64_t count, std::string_view noun) {
  return grouped(count) + " " + std::string(noun) + (count == 1 ? "" : "s");
}

std::string shortened(double number) {
  constexpr std::array prefixes{"", " k", " M", " G", " T", " P"};
  size_t prefix = 0;
  while (number >= 999.5 && prefix + 1 < prefixes.size()) {
    number /= 1000;
    ++prefix;
  }
  return (prefix == 0 ? fixed(number, number == std::floor(number) ? 0 : 1) : threeDigits(number)) + prefixes[prefix];
}

std::string readableBytes(uint64_t bytes) {
  constexpr std::array units{" KiB", " MiB", " GiB", " TiB", " PiB"};
  if (bytes < 1024) return counted(bytes, "byte");
  double amount = static_cast<double>(bytes) / 1024;
  size_t unit = 0;
  while (amount >= 999.5 && unit + 1 < units.size()) {
    amount /= 1024;
    ++unit;
  }
  return (amount < 1 ? fixed(amount, 2) : threeDigits(amount)) + units[unit];
}

std::string readableDuration(double seconds) {
  const auto whole = static_cast<uint64_t>(std::ceil(std::clamp(seconds, 0.0, 1e9)));
  std::array<char, 32> text;
  if (whole < 3600) {
    std::snprintf(text.data(), text.size(), "%lu:%02lu", whole / 60, whole % 60);
  } else {
    std::snprintf(text.data(), text.size(), "%lu:%02lu:%02lu", whole / 3600, whole / 60 % 60, whole % 60);
  }
  return text.data();
}

std::string fixed(double number, int decimals) {
  std::array<char, 64> text;
  std::snprintf(text.data(), text.size(), "%.*f", decimals, number);
  return text.data();
}

std::string significant(double number) {
  std::array<char, 64> text;
  std::snprintf(text.data(), text.size(), "%.3g", number);
  return text.data();
}

std::string percent(double share) {
  const double value = share * 100;
  if (value > 0 && value < 0.05) return "< 0.1 %";
  if (value < 100 && value >= 99.95) return "> 99.9 %";
  return fixed(value, 1) + " %";
}

std::string densityText(double density) {
  if (density >= 0.001) return percent(density);
  return "1 in " + grouped(static_cast<uint64_t>(std::llround(1 / density)));
}

std::string printable(std::string_view text, size_t limit) {
  std::string result;
  while (!text.empty()) {
    if (result.size() >= limit) return result + "...";
    const size_t length = characterLength(text);
    if (length == 0 || isControl(static_cast<unsigned char>(text[0]))) {
      std::array<char, 8> code;
      std::snprintf(code.data(), code.size(), "\\x%02x", static_cast<unsigned char>(text[0]));
      result += code.data();
      text.remove_prefix(1);
    } else {
      result += text.substr(0, length);
      text.remove_prefix(length);
    }
  }
  return result;
}

size_t displayWidth(std::string_view text) {
  const auto startsCharacter = [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; };
  return static_cast<size_t>(std::count_if(text.begin(), text.end(), startsCharacter));
}

std::string Table::text() const {
  std::vector<size_t> widths(lines_.front().size());
  for (const auto& line : lines_) {
    for (size_t i = 0; i < widths.size(); ++i) widths[i] = std::max(widths[i], displayWidth(line[i]));
  }
  std::string result;
  for (const auto& cells : lines_) {
    std::string line = cells[0];
    size_t end = widths[0];
    for (size_t i = 1; i < widths.size(); ++i) {
      end += 2 + widths[i];
      padTo(line, end - displayWidth(cells[i]));
      line += cells[i];
    }
    result += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
  }
  return result;
}

std::string Facts::text() const {
  size_t width = 0;
  for (const auto& [label, value] : pairs_) width = std::max(width, displayWidth(label));
  std::string result;
  for (const auto& [label, value] : pairs_) {
    std::string line = label;
    padTo(line, width + 2);
    result += line + value + "\n";
  }
  return result;
}

}  // namespace bmtree::tools
