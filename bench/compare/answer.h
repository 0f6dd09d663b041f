// Answers in a form that can be compared between competitors.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "operations.h"

// A fingerprint of a sequence of numbers, its order included.
struct Digest {
  uint64_t count = 0;
  uint64_t hash = 0;

  bool operator==(const Digest&) const = default;
};

// All that an operation gave: what it returned, what it wrote, and the content of each set that it filled or changed.
struct Answer {
  uint64_t result = 0;
  std::vector<Digest> digests;

  bool operator==(const Answer&) const = default;
};

Answer answerOf(const Operation& operation, const Trial& trial, uint64_t result);

// What can be had of it after each timed run in little time: the result, and the sizes of those sets.
uint64_t briefAnswerOf(const Operation& operation, const Trial& trial, uint64_t result);
