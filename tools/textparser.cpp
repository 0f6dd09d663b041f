#include "textparser.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstring>

#include "readable.h"
#include "store.h"

namespace bmtree::tools {
namespace {

constexpr uint64_t everyByte(uint64_t byte) { return byte * 0x0101010101010101; }

// Eight characters, the first in the lowest byte.
inline uint64_t loadCharacters(const char* text) {
  uint64_t characters;
  std::memcpy(&characters, text, sizeof characters);
  return std::endian::native == std::endian::little ? characters : __builtin_bswap64(characters);
}

// How many of eight characters, each reduced by '0', are digits up to the first that is none. The addition may carry
// from a byte that is no digit into the next one, which no longer matters.
inline unsigned countDigits(uint64_t reduced) {
  const uint64_t noDigit = ((reduced + everyByte(0x80 - 10)) | reduced) & everyByte(0x80);
  return static_cast<unsigned>(std::countr_zero(noDigit)) / 8;
}

// The value of the first `count` of eight characters reduced by '0', all of them digits; `count` is 1 to 8. The
// digits are moved to the end with zeros before them and then joined in pairs, in fours and at last.
inline uint64_t valueOfDigits(uint64_t reduced, unsigned count) {
  uint64_t value = reduced << (64 - 8 * count);
  value = (value * 10 + (value >> 8)) & 0x00ff00ff00ff00ff;
  value = (value * 100 + (value >> 16)) & 0x0000ffff0000ffff;
  return (value * 10000 + (value >> 32)) & 0xffffffff;
}

constexpr std::array<uint64_t, 9> powersOfTen{1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000};

constexpr std::array<bool, 256> makeSeparators() {
  std::array<bool, 256> table{};
  for (const char c : {' ', ',', '\t', '\n', '\v', '\f', '\r'}) table[static_cast<unsigned char>(c)] = true;
  return table;
}
constexpr std::array<bool, 256> separators = makeSeparators();

// A number of more than 15 characters: legal only with zeros in front.
const char* parseLongNumber(const char* text, uint64_t& number) {
  number = 0;
  for (; *text >= '0' && *text <= '9'; ++text) {
    number = std::min(number * 10 + static_cast<uint64_t>(*text - '0'), numberEnd);
  }
  return text;
}

// Parses the digits at `text`, at least one, and returns where they end.
inline const char* parseDigits(const char* text, uint64_t& number) {
  const uint64_t head = loadCharacters(text) ^ everyByte('0');
  const unsigned headDigits = countDigits(head);
  if (headDigits < 8) {
    number = valueOfDigits(head, headDigits);
    return text + headDigits;
  }
  const uint64_t tail = loadCharacters(text + 8) ^ everyByte('0');
  const unsigned tailDigits = countDigits(tail);
  if (tailDigits == 8) return parseLongNumber(text, number);
  number = valueOfDigits(head, 8) * powersOfTen[tailDigits];
  if (tailDigits != 0) number += valueOfDigits(tail, tailDigits);
  return text + 8 + tailDigits;
}

inline bool isDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

bool isSeparator(char c) { return separators[static_cast<unsigned char>(c)]; }

ParseResult parseNumbers(std::string_view text, std::span<uint64_t> out) {
  const char* next = text.data();
  const char* const end = next + text.size();
  uint64_t* stored = out.data();
  uint64_t* const room = stored + out.size();
  bool ok = true;
  while (next != end) {
    if (!isDigit(*next)) {
      if (!isSeparator(*next)) {
        ok = false;
        break;
      }
      ++next;
      continue;
    }
    if (stored == room) break;
    uint64_t number;
    const char* const behind = parseDigits(next, number);
    if (number >= numberEnd || !isSeparator(*behind)) {
      ok = false;
      break;
    }
    *stored++ = number;
    next = behind + 1;
  }
  return {next, static_cast<size_t>(stored - out.data()), ok};
}

bool parseNumber(std::string_view word, uint64_t& number) {
  const bool hexadecimal = word.starts_with("0x") || word.starts_with("0X");
  if (hexadecimal) word.remove_prefix(2);
  const char* const end = word.data() + word.size();
  const auto result = std::from_chars(word.data(), end, number, hexadecimal ? 16 : 10);
  return result.ec == std::errc() && result.ptr == end && number < numberEnd;
}

std::string describeBadNumber(std::string_view word) {
  const std::string shown = printable(word, 40);
  if (!word.empty() && std::all_of(word.begin(), word.end(), isDigit)) {
    return shown + " is too large: the highest number is " + std::to_string(numberEnd - 1);
  }
  return "\"" + shown + "\" is not a number";
}

}  // namespace bmtree::tools
