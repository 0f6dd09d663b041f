#include "results.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

double Result::median() const {
  if (runs.empty()) return 0;
  std::vector<double> sorted = runs;
  std::sort(sorted.begin(), sorted.end());
  const size_t middle = sorted.size() / 2;
  return sorted.size() % 2 == 1 ? sorted[middle] : (sorted[middle - 1] + sorted[middle]) / 2;
}

double Result::spread() const {
  const double middle = median();
  if (middle == 0) return 0;
  const auto [lowest, highest] = std::minmax_element(runs.begin(), runs.end());
  return (*highest - *lowest) / middle;
}

const Result* findResult(const Report& report, const std::string& workload, const std::string& operation,
                         const std::string& competitor) {
  const auto place = std::find_if(report.results.begin(), report.results.end(), [&](const Result& result) {
    return result.workload == workload && result.operation == operation && result.competitor == competitor;
  });
  return place == report.results.end() ? nullptr : &*place;
}

std::string threeDigits(double value) {
  if (!(value > 0)) return "0";
  const int digits = 2 - static_cast<int>(std::floor(std::log10(value)));
  char text[64];
  if (digits > 0) {
    std::snprintf(text, sizeof text, "%.*f", std::min(digits, 9), value);
    return text;
  }
  const double unit = std::pow(10, -digits);
  std::snprintf(text, sizeof text, "%.0f", std::round(value / unit) * unit);
  std::string grouped = text;
  for (size_t place = grouped.size(); place > 3; place -= 3) grouped.insert(place - 3, 1, ',');
  return grouped;
}
