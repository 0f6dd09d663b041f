#include "fuzz/fuzzsupport.h"

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

std::vector<unsigned long> manyBits() {
  std::vector<unsigned long> bits;
  for (unsigned long i = 0; i < 5000; ++i) bits.push_back(100 + 3 * i);
  for (unsigned long i = 1; i < 3000; ++i) bits.push_back(i * 1000003);
  bits.push_back(BM_HIGHEST_BIT);
  return bits;
}

}  // namespace

void FuzzTree::populate() {
  static FuzzTree model(context_);
  if (model.root_.root == 0) {
    const std::vector<unsigned long> bits = manyBits();
    BmSetBitsFromSortedArray_(&context_, &model.root_, bits.data(), bits.data() + bits.size());
  }
  BmCopyTree(&context_, &model.root_, &root_);
}

unsigned long FuzzTree::walk() {
  unsigned long bits[512];
  unsigned long total = 0;
  BmPathSType path{};
  while (const unsigned long got = BmFindSetBitsNonDestructive_(&context_, 512, &root_, &path, bits)) total += got;
  return total;
}

void fuzzFailure(const char* condition, const char* file, int line) {
  std::fprintf(stderr, "%s:%d: not so: %s\n", file, line, condition);
  std::abort();
}

// libFuzzer's own output is kept; the messages of the module about broken input would drown it.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  static std::vector<char*> arguments(*argv, *argv + *argc);
  static char quiet[] = "-close_fd_mask=3";
  arguments.push_back(quiet);
  *argc = static_cast<int>(arguments.size());
  arguments.push_back(nullptr);
  *argv = arguments.data();
  return 0;
}
