// One line on a terminal about a command that takes its time.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace bmtree::tools {

// "loading  45.2 %  401 MB of 889 MB  312 MB/s  0:02 left", on standard error, rewritten in place. Nothing appears
// within the first second, or at all when standard error is no terminal. When the work is done the line is replaced
// by one that tells how much it was and how long it took; when it is broken off, by nothing.
class ProgressLine {
 public:
  // `label`: what is going on. `unit`: what is counted, "bytes" being shown as sizes. `total`: units in all, 0 if
  // unknown. `wanted` false: stay silent.
  ProgressLine(std::string label, std::string unit, uint64_t total, bool wanted = true);
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;
  ~ProgressLine() { erase(); }

  // `done` units of work are behind us. Cheap; to be called a few hundred times a second or more.
  void update(uint64_t done);
  void update(uint64_t done, uint64_t total);

  // All of it is done.
  void finish();

 private:
  using Clock = std::chrono::steady_clock;

  double secondsSinceStart() const;
  std::string amount(double units) const;
  std::string describe() const;
  void print(const std::string& text);
  void erase();

  const std::string label_;
  const std::string unit_;
  uint64_t total_;
  uint64_t done_ = 0;
  const bool active_;
  const Clock::time_point start_;
  Clock::time_point nextPrint_;
  bool visible_ = false;
};

}  // namespace bmtree::tools
