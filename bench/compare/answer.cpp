#include "answer.h"

namespace {

Digest digestOf(std::span<const uint64_t> numbers) {
  uint64_t hash = numbers.size();
  for (uint64_t number : numbers) hash = (hash ^ number) * 0x9E3779B97F4A7C15 + (hash >> 29);
  return {numbers.size(), hash};
}

Digest digestOf(const NumberSet& set) {
  std::vector<uint64_t> numbers(set.size());
  numbers.resize(set.toArray(numbers.data()));
  return digestOf(numbers);
}

}  // namespace

Answer answerOf(const Operation& operation, const Trial& trial, uint64_t result) {
  Answer answer{result, {digestOf(trial.output)}};
  if (operation.freshEach) {
    for (const auto& set : trial.fresh) answer.digests.push_back(digestOf(*set));
  }
  return answer;
}

uint64_t briefAnswerOf(const Operation& operation, const Trial& trial, uint64_t result) {
  if (operation.freshEach) {
    for (const auto& set : trial.fresh) result += set->size();
  }
  return result;
}
