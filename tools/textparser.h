// Decimal numbers out of text, as fast as the text can be looked at.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace bmtree::tools {

// Bytes behind a text that parseNumbers may read, though their content does not matter.
constexpr size_t parserSlack = 16;

// How far a call of parseNumbers came.
struct ParseResult {
  const char* end;  // the text from here on was not looked at, or is at fault
  size_t count;     // numbers stored
  bool ok;          // false: at `end` stands something that is not a number below 2^40
};

// Parses `text`, numbers between blanks, tabs, line ends and commas, into `out` until the text or the room ends. The
// last number must be ended by one of these.
ParseResult parseNumbers(std::string_view text, std::span<uint64_t> out);

// True for what stands between numbers.
bool isSeparator(char c);

// One number as users write it in a command: decimal, or hexadecimal behind 0x, below 2^40. False if it is none.
bool parseNumber(std::string_view word, uint64_t& number);

// What is wrong with `word`, which is no number below 2^40: "12x is not a number".
std::string describeBadNumber(std::string_view word);

}  // namespace bmtree::tools
