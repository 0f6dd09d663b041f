// The least that a program can do with the installed library: set a context up. A static link asks for what is used
// only, so the program defines the three reports and no other import.
#include <bmtree/bitmap.h>

#include <cstdio>
#include <cstdlib>

static void fail(const char* text, const char* file, int line) {
  std::fprintf(stderr, "%s: %s:%d\n", text, file, line);
  std::abort();
}

int HostCallDebuggerMsg_fl(const char* text, const char* file, int line) {
  fail(text, file, line);
  return 0;
}

void PageReportHeaderFault(PageCacheSType*, RepPageKindEType, RepPageHdrSType*, const char* file, int line) {
  fail("wrong page", file, line);
}

void PageReportCacheFault(PageCacheSType*, unsigned long, const char* text, RepPageHdrSType*, const char* file,
                          int line, ShrPcStateSType*) {
  fail(text, file, line);
}

int main() {
  PageCacheSType pc{};
  BmInitTreeRoots(&pc);
  BmCheckTreeRoots();
  RepTreeRootSType root;
  BmInitHeapTree(&root, 17, "consumer");
  const bool right = root.root == 0 && root.allocTag == 17 && root.treeKind == BM_HEAP_TREE &&
                     pc.invalidCarefulTreeRoot->treeKind == BM_CAREFUL_TREE;
  std::puts(right ? "set up" : "wrong roots");
  return right ? 0 : 1;
}
