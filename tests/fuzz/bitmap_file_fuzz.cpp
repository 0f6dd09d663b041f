// Any bytes as a bitmap file, read into an empty tree, into one with bits, and into an inline list.
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "fuzz/fuzzsupport.h"
#include "hostdebugger.h"

namespace {

// The one file of the run, in memory.
class MemoryFile {
 public:
  MemoryFile() : fd_(memfd_create("bitmap", 0)), name_("/proc/self/fd/" + std::to_string(fd_)) {}

  void set(const uint8_t* bytes, size_t size) {
    FUZZ_REQUIRE(ftruncate(fd_, 0) == 0);
    FUZZ_REQUIRE(pwrite(fd_, bytes, size, 0) == static_cast<ssize_t>(size));
  }
  char* name() { return name_.data(); }

 private:
  int fd_;
  std::string name_;
};

// What stands in the file stays within the tree's pages, and a sound file is there in full. The reader trusts the
// order of the items, so another file can leave a list out of order, but nothing that cannot be walked and given
// back.
void readInto(FuzzContext& context, FuzzTree& tree, MemoryFile& file, const BmCheckResultSType& check) {
  const unsigned long before = tree.bits();
  const unsigned long reports = HostDebuggerReports();
  const int result = BmReadFromFile(&context, file.name(), tree.root(), nullptr);
  const unsigned long walked = tree.walk();
  if (check.fault != BM_CHECK_SOUND) return;
  FUZZ_REQUIRE(tree.isSound() && walked == tree.bits());
  FUZZ_REQUIRE(result == 1);
  FUZZ_REQUIRE(HostDebuggerReports() == reports);
  FUZZ_REQUIRE(tree.bits() - before <= check.itemIndex);
  FUZZ_REQUIRE(before != 0 || tree.bits() == check.itemIndex);
  const unsigned long after = tree.bits();
  FUZZ_REQUIRE(BmReadFromFile(&context, file.name(), tree.root(), nullptr) == 1);
  FUZZ_REQUIRE(tree.bits() == after);
}

struct InlineRecord {
  uint32_t offset = offsetof(InlineRecord, list);
  uint32_t reserved = 0;
  RepBitListContentsSType list{};
};

void readIntoInlineList(FuzzContext& context, MemoryFile& file) {
  InlineRecord record;
  RepTreeRootSType root(reinterpret_cast<unsigned long>(&record), BM_INLINE_LIST_TREE);
  BmReadFromFile(&context, file.name(), &root, nullptr);
  FUZZ_REQUIRE(record.list.firstOffset >= 0 && record.list.count >= 0);
  FUZZ_REQUIRE(record.list.firstOffset + record.list.count <= BM_BIT_LIST_CAPACITY);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static FuzzContext context;
  static MemoryFile file;
  file.set(data, size);
  BmCheckResultSType check;
  FUZZ_REQUIRE((BmCheckFile(file.name(), &check) == 1) == (check.fault == BM_CHECK_SOUND));
  FUZZ_REQUIRE(check.byteOffset <= size + 16);
  FuzzTree empty(context);
  readInto(context, empty, file, check);
  if (size < 4096) {
    FuzzTree populated(context);
    populated.populate();
    readInto(context, populated, file, check);
  }
  readIntoInlineList(context, file);
  return 0;
}
