// Numbers, sizes, rates and tables as people like to read them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace bmtree::tools {

// 1003861 as "1,003,861".
std::string grouped(uint64_t number);

// `count` with the noun it counts: "1 number", "1,003 numbers".
std::string counted(uint64_t count, std::string_view noun);

// Rounded to three digits with a decimal prefix: "999", "1.23 k", "44.6 M".
std::string shortened(double number);

// Bytes with a binary prefix: "812 bytes", "1.50 MiB".
std::string readableBytes(uint64_t bytes);

// "0:07", "12:30", "3:05:00". A fraction of a second counts as a whole one.
std::string readableDuration(double seconds);

// A number with `decimals` digits behind the point.
std::string fixed(double number, int decimals);

// A number with three significant digits: "0.000244", "7.97".
std::string significant(double number);

// A share from 0 to 1 as "12.3 %". What is not nothing does not read 0, what is not all does not read 100.
std::string percent(double share);

// A density from 0 to 1: a share, or "1 in 50,000" where that is less than one in a thousand.
std::string densityText(double density);

// Text that is safe on a terminal: control characters and broken bytes as \xNN, cut off with "..." behind `limit`
// bytes.
std::string printable(std::string_view text, size_t limit = 200);

// How many columns of a terminal UTF-8 text takes, one for each character.
size_t displayWidth(std::string_view text);

// Lines of cells in columns as wide as their widest cell. The first line is the head. The first column is aligned
// left, the others right.
class Table {
 public:
  explicit Table(std::vector<std::string> head) { lines_.push_back(std::move(head)); }

  // Adds a line of as many cells as the head has.
  void add(std::vector<std::string> cells) { lines_.push_back(std::move(cells)); }

  // The whole table, each line ended by a newline and without blanks at its end.
  std::string text() const;

 private:
  std::vector<std::vector<std::string>> lines_;
};

// Pairs of a label and a value, one to a line, the values below each other.
class Facts {
 public:
  void add(std::string label, std::string value) { pairs_.emplace_back(std::move(label), std::move(value)); }
  std::string text() const;

 private:
  std::vector<std::pair<std::string, std::string>> pairs_;
};

}  // namespace bmtree::tools
