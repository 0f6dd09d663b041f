// Any bytes as a compressed record, loaded into an empty tree and into one with bits.
#include <cstring>
#include <memory>

#include "fuzz/fuzzsupport.h"
#include "hostdebugger.h"

namespace {

constexpr size_t LARGEST_RECORD = 40 + 65536;  // what the largest word count reaches to

// A record in a block of exactly its size, so that the sanitizer sees the first byte behind it.
class ExactRecord {
 public:
  ExactRecord(const uint8_t* bytes, size_t size, size_t room) : block_(new char[room]()) {
    std::memcpy(block_.get(), bytes, size);
  }
  LogComprResourceIdRecHdrType* get() { return reinterpret_cast<LogComprResourceIdRecHdrType*>(block_.get()); }

 private:
  std::unique_ptr<char[]> block_;
};

// Carries a tree through small records into another one and requires the same number of bits.
void carry(FuzzContext& context, FuzzTree& tree) {
  FuzzTree target(context);
  BmPathSType path{};
  unsigned long loaded = 0;
  for (int last = 0; last == 0;) {
    alignas(8) char block[40 + 1000];
    auto* record = reinterpret_cast<LogComprResourceIdRecHdrType*>(block);
    LogComprResourcePackerType packer(record, sizeof block);
    last = BmFindSetBitsNonDestructive(&context, tree.root(), &path, &packer);
    loaded += BmSetBitsFromLogRec(&context, target.root(), record);
  }
  FUZZ_REQUIRE(loaded == tree.bits());
  FUZZ_REQUIRE(target.bits() == tree.bits());
  FUZZ_REQUIRE(target.isSound());
}

// A sound record sets what it says, without a report.
void loadSound(FuzzContext& context, FuzzTree& tree, LogComprResourceIdRecHdrType* record) {
  const unsigned long before = tree.bits();
  const unsigned long reports = HostDebuggerReports();
  const unsigned long added = BmSetBitsFromLogRec(&context, tree.root(), record);
  FUZZ_REQUIRE(HostDebuggerReports() == reports);
  FUZZ_REQUIRE(added <= static_cast<unsigned long>(record->numBits));
  FUZZ_REQUIRE(tree.bits() == before + added);
  FUZZ_REQUIRE(tree.isSound());
  FUZZ_REQUIRE(BmSetBitsFromLogRec(&context, tree.root(), record) == 0);
}

// Any other one sets what it can. The count of an image is trusted, so it can disagree with the words.
void loadBroken(FuzzContext& context, FuzzTree& tree, LogComprResourceIdRecHdrType* record) {
  BmSetBitsFromLogRec(&context, tree.root(), record);
  BmSetBitsFromLogRec(&context, tree.root(), record);
  const bool sound = tree.isSound();
  FUZZ_REQUIRE(sound || record->bodyWords < 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static FuzzContext context;
  ExactRecord exact(data, size, size);
  BmCheckResultSType check;
  const bool sound = BmCheckLogRec(exact.get(), size, &check) == 1;
  FUZZ_REQUIRE(sound == (check.fault == BM_CHECK_SOUND));
  if (size < 40 || size > LARGEST_RECORD) return 0;
  FuzzTree empty(context);
  FuzzTree populated(context);
  populated.populate();
  if (sound) {
    loadSound(context, empty, exact.get());
    loadSound(context, populated, exact.get());
    carry(context, empty);
  } else {
    ExactRecord roomy(data, size, LARGEST_RECORD);
    loadBroken(context, empty, roomy.get());
    loadBroken(context, populated, roomy.get());
  }
  return 0;
}
