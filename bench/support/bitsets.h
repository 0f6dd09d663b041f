// Sets of bits to measure with: made-up ones of a few densities, and real ones from files.
//
// Every folder below the directory that the environment variable BMTREE_DATA names is a collection of real sets: text
// files of ascending numbers between commas, each file one set.
#pragma once

#include <string>
#include <vector>

using Bits = std::vector<unsigned long>;  // ascending, without repeats
using Sets = std::vector<Bits>;

// Made-up sets over the same 8 million numbers, except `wide` ones; `seed` makes another one of the same sort.
Bits sparseBits(unsigned seed);     // one number in a thousand
Bits clusteredBits(unsigned seed);  // 1500 numbers in each of 64 short stretches
Bits denseBits(unsigned seed);      // every other number on average
Bits runBits(unsigned seed);        // runs of about 1000 numbers, as many left out between them
Bits wideBits(unsigned seed);       // 300,000 numbers of all 40 bits

// The folders of real sets, none without the environment variable; the sets of one, by the order of their names.
std::vector<std::string> realCollections();
Sets readSets(const std::string& folder);
