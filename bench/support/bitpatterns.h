// Bits in the orders and densities that the benchmarks of the write side use, the same in every run.
#pragma once

#include <benchmark/benchmark.h>

#include <vector>

#include "support/benchhost.h"

using Bits = std::vector<unsigned long>;

enum class Order {
  ascending,   // 97 apart
  descending,  // the same from the top
  random,      // over all 2^40 bits
  clustered,   // 1000 clusters, one after the other, each a quarter full, at random within
  dense,       // every bit from 0 on, ascending
};

// `count` different bits.
Bits bitsInOrder(Order order, unsigned long count);

// Puts the elements in an order without order.
void shuffle(Bits::iterator first, Bits::iterator end);

// Bytes of the pages of a tree.
double bytesOf(BenchHost& host, BenchTree& tree);

// The counter "s/bit" for rounds of `bitsPerRound` each.
void reportPerBit(benchmark::State& state, unsigned long bitsPerRound);
