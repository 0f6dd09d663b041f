#include "progress.h"

#include <unistd.h>

#include <cstdio>
#include <utility>

#include "readable.h"

namespace bmtree::tools {
namespace {

constexpr std::chrono::milliseconds firstPrint{1000};
constexpr std::chrono::milliseconds printInterval{100};

}  // namespace

ProgressLine::ProgressLine(std::string label, std::string unit, uint64_t total, bool wanted)
    : label_(std::move(label)),
      unit_(std::move(unit)),
      total_(total),
      active_(wanted && ::isatty(STDERR_FILENO) != 0),
      start_(Clock::now()),
      nextPrint_(start_ + firstPrint) {}

void ProgressLine::update(uint64_t done) {
  if (!active_) return;
  done_ = done;
  const auto now = Clock::now();
  if (now < nextPrint_) return;
  nextPrint_ = now + printInterval;
  print(describe());
}

void ProgressLine::update(uint64_t done, uint64_t total) {
  total_ = total;
  update(done);
}

void ProgressLine::finish() {
  if (!visible_) return;
  const double seconds = secondsSinceStart();
  const auto done = static_cast<double>(done_);
  print(label_ + ": " + amount(done) + " in " + readableDuration(seconds) + ", " + amount(done / seconds) + "/s\n");
  visible_ = false;
}

double ProgressLine::secondsSinceStart() const {
  return std::chrono::duration<double>(Clock::now() - start_).count();
}

std::string ProgressLine::amount(double units) const {
  if (unit_ != "bytes") return shortened(units) + " " + unit_;
  const std::string size = shortened(units);
  return size + (size.find(' ') == std::string::npos ? " B" : "B");
}

std::string ProgressLine::describe() const {
  const auto done = static_cast<double>(done_);
  const double rate = done / secondsSinceStart();
  if (total_ == 0) return label_ + "  " + amount(done) + "  " + amount(rate) + "/s";
  const auto total = static_cast<double>(total_);
  std::string text = label_ + "  " + percent(done / total) + "  " + amount(done) + " of " + amount(total) + "  " +
                     amount(rate) + "/s";
  if (rate > 0 && done_ <= total_) text += "  " + readableDuration((total - done) / rate) + " left";
  return text;
}

void ProgressLine::print(const std::string& text) {
  std::fprintf(stderr, "\r%s\033[K", text.c_str());
  std::fflush(stderr);
  visible_ = true;
}

void ProgressLine::erase() {
  if (visible_) std::fputs("\r\033[K", stderr);
}

}  // namespace bmtree::tools
