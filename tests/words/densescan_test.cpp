// The bits of a dense leaf as an array: the form for wide vectors and the plain one against a look at every bit.
#include "words/densescan.h"

#include "support/treemodel.h"
#include "words/widescan.h"

namespace {

using Words = std::vector<uint64_t>;
using Collect = DenseStretch (*)(const uint64_t*, unsigned, unsigned long, unsigned long, uint64_t*);

constexpr unsigned long base = 7 * BM_LEAF_BITS;
constexpr uint64_t untouched = 0xEEEE;

Words filled(uint64_t word) { return Words(BM_BIT_LIST_CAPACITY, word); }

// Words with `share` of 8 bits set, and runs of empty and full words between them.
Words randomWords(Random& random) {
  const uint64_t share = random.below(9);
  Words words = filled(0);
  uint64_t left = 0;
  uint64_t mode = 0;
  for (uint64_t& word : words) {
    if (left-- == 0) {
      left = random.below(100);
      mode = random.below(4);
    }
    if (mode == 1) word = ~uint64_t{0};
    for (int bit = 0; mode > 1 && bit < 64; ++bit) word |= uint64_t{random.below(8) < share} << bit;
  }
  return words;
}

// What a look at every bit gives.
void expectStretch(Collect collect, const Words& words, bool wanted, unsigned start, unsigned long room) {
  Words expected;
  unsigned next = BM_LEAF_BITS;
  for (unsigned position = start; position < BM_LEAF_BITS && expected.size() < room; ++position) {
    if (((words[position >> 6] >> (position & 63) & 1) != 0) == wanted) {
      expected.push_back(base + position);
      if (expected.size() == room) next = position + 1;
    }
  }
  Words out(expected.size() + 1, untouched);
  const DenseStretch stretch = collect(words.data(), start, base, room, out.data());
  ASSERT_EQ(out.back(), untouched) << "written behind the last bit";
  out.pop_back();
  ASSERT_EQ(stretch.count, expected.size()) << "from " << start << ", room " << room;
  ASSERT_EQ(out, expected) << "from " << start << ", room " << room;
  ASSERT_EQ(stretch.next, next) << "from " << start << ", room " << room;
}

void expectAllForms(const Words& words, unsigned start, unsigned long room) {
  expectStretch(collectSetBits, words, true, start, room);
  expectStretch(collectClearBits, words, false, start, room);
  room = std::min<unsigned long>(room, BM_LEAF_BITS);
  expectStretch(collectSetBitsPlain, words, true, start, room);
  expectStretch(collectClearBitsPlain, words, false, start, room);
  if (!canScanWide()) return;
  expectStretch(collectSetBitsWide, words, true, start, room);
  expectStretch(collectClearBitsWide, words, false, start, room);
}

TEST(DenseScanTest, EmptyFullAndStripedLeaves) {
  for (const uint64_t word :
       {uint64_t{0}, ~uint64_t{0}, uint64_t{0x5555555555555555}, uint64_t{1}, uint64_t{1} << 63}) {
    for (const unsigned start : {0U, 1U, 63U, 64U, 100U, 130751U, 130752U}) {
      for (const unsigned long room : {1UL, 63UL, 64UL, 65UL, 1000UL, 130752UL, 1UL << 40, 1UL << 61, ~0UL}) {
        expectAllForms(filled(word), start, room);
      }
    }
  }
}

TEST(DenseScanTest, EveryNumberOfBitsInAWordIsWrittenWhole) {
  for (unsigned count = 0; count <= 64; ++count) {
    Words words = filled(0);
    words[5] = count == 64 ? ~uint64_t{0} : (uint64_t{1} << count) - 1;
    words[2042] = words[5] << (64 - count) % 64;
    for (const unsigned long room : {1UL, 8UL, 64UL, 128UL, 129UL}) expectAllForms(words, 0, room);
  }
}

TEST(DenseScanTest, RoomThatEndsWithAWordStopsThere) {
  Words words = filled(~uint64_t{0});
  for (const unsigned long room : {64UL, 128UL, 64UL * 63, 64UL * 64, 64UL * 65}) expectAllForms(words, 0, room);
  expectAllForms(words, 64 * 2042, 64);
}

TEST(DenseScanTest, RandomLeavesFromRandomPlaces) {
  Random random(testSeed());
  for (int round = 0; round < 40; ++round) {
    const Words words = randomWords(random);
    expectAllForms(words, 0, BM_LEAF_BITS);
    for (int i = 0; i < 5; ++i) {
      const auto start = static_cast<unsigned>(random.below(BM_LEAF_BITS + 1));
      expectAllForms(words, start, 1 + random.below(random.oneIn(2) ? 200 : BM_LEAF_BITS));
    }
  }
}

TEST(DenseScanTest, WhatIsTakenIsCleared) {
  Random random(testSeed());
  for (int round = 0; round < 40; ++round) {
    const Words before = randomWords(random);
    Words words = before;
    const auto start = static_cast<unsigned>(random.below(BM_LEAF_BITS));
    const unsigned long room = 1 + random.below(3000);
    Words out(room);
    const DenseStretch taken = takeSetBits(words.data(), start, base, room, out.data());
    for (unsigned long i = 0; i < taken.count; ++i) {
      const uint64_t position = out[i] - base;
      words[position >> 6] |= uint64_t{1} << (position & 63);
    }
    ASSERT_EQ(words, before);
  }
}

}  // namespace
