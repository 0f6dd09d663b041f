// The imports of the module, each handed to the test host that it is meant for, and the host's file operations.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "support/testhost.h"
#include "utl.h"

namespace {

std::string nameOf(const char* file) { return file != nullptr ? file : "null"; }

TestHost& host() {
  if (TestHost::current() == nullptr) {
    ADD_FAILURE() << "an import was called without a test host";
    std::abort();
  }
  return *TestHost::current();
}

// Counts a fault counter down; true when it is this call's turn to fail.
bool isDue(int& counter) { return counter > 0 && --counter == 0; }

}  // namespace

// ---------------------------------------------------------------------------------------------------------
// Page cache

RepPageHdrSType* PageLocate(PageCacheSType* pc, unsigned long pageId, int kind, int mode) {
  return TestHost::of(pc).locate(pageId, kind, mode);
}

RepPageHdrSType* PageLocateNewIn(PageCacheSType* pc, RepPageKindEType kind, int shared) {
  return TestHost::of(pc).locateNew(kind, shared);
}

int RepDisposeTempPage_(PageCacheSType* pc, unsigned long pageId) { return TestHost::of(pc).dispose(pageId); }

void PagePin(PageCacheSType* pc, RepPageHdrSType* page) { TestHost::of(pc).pin(page); }

void PageUnpin(PageCacheSType* pc, RepPageHdrSType* page) { TestHost::of(pc).unpin(page); }

void PageReportHeaderFault(PageCacheSType*, RepPageKindEType kind, RepPageHdrSType* page, const char* file,
                           int line) {
  host().report({.kind = ReportKind::headerFault,
                 .text = {},
                 .file = nameOf(file),
                 .line = line,
                 .pageId = page != nullptr ? page->pageId : 0,
                 .hasPage = page != nullptr,
                 .wantedKind = kind});
}

void PageReportCacheFault(PageCacheSType*, unsigned long pageId, const char* text, RepPageHdrSType* page,
                          const char* file, int line, ShrPcStateSType* state) {
  host().report({.kind = ReportKind::cacheFault,
                 .text = text,
                 .file = nameOf(file),
                 .line = line,
                 .pageId = pageId,
                 .hasPage = page != nullptr,
                 .hasState = state != nullptr});
}

void PageFlushRemotePage_(PageCacheSType* pc, unsigned long pageId, PageRemoveEType mode) {
  TestHost::of(pc).flush(pageId, mode);
}

void PageFlushRemotePagePtr(PageCacheSType* pc, RepPageHdrSType* page) { TestHost::of(pc).flushPage(page); }

void PageRemoveFromPrivateCache(PageCacheSType* pc, unsigned long pageId, int mode) {
  TestHost::of(pc).removeFromCache(pageId, mode);
}

void ShrSetDirtyNoCheck(ShrPcStateSType* state, RepPageHdrSType* page, unsigned char mode) {
  static_cast<TestHost*>(state->hostState)->markDirty(page, mode);
}

void ShrPcClearLockedPage(ShrPcStateSType* state) {
  static_cast<TestHost*>(state->hostState)->log(EventKind::clearLocked);
}

// ---------------------------------------------------------------------------------------------------------
// Memory and reports

int HostCallDebuggerMsg_fl(const char* text, const char* file, int line) {
  host().report({.kind = ReportKind::debugger, .text = text, .file = nameOf(file), .line = line});
  return 0;
}

void* UtlMallocF(unsigned long size, int tag, int flags) { return host().allocateHeapPage(size, tag, flags); }

void* UtlMalloc(unsigned long size, const char* label) { return host().allocateBuffer(size, label); }

void UtlFree(void* memory) { host().free(memory); }

void UtlRemoveLogOnExit(int remove) { host().recordRemoveLog(remove); }

// ---------------------------------------------------------------------------------------------------------
// Files

const std::string& TestHost::tempDirectory() {
  if (tempDirectory_.empty()) {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base != nullptr ? base : "/tmp") + "/bmtree-test-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) ADD_FAILURE() << "no directory for temporary files: " << pattern;
    tempDirectory_ = pattern + "/";
  }
  return tempDirectory_;
}

std::string TestHost::tempFileName() { return tempDirectory() + "file" + std::to_string(tempFiles_++); }

int TestHost::open(const char* name, int flags, int mode) {
  openedFiles_.emplace_back(name);
  if (isDue(fileFaults.failOpen)) {
    errno = fileFaults.code;
    return -1;
  }
  if (flags == 0 && mode == 0) return ::open(name, O_RDONLY);
  if (flags == BM_HOST_CREATE_FLAGS && mode == BM_HOST_OWNER_MODE) {
    return ::open(name, O_WRONLY | O_APPEND | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR);
  }
  ADD_FAILURE() << "HostOpen with flags " << flags << " and mode " << mode;
  errno = EINVAL;
  return -1;
}

namespace {

// Moves `bytes` by `step` (read or write); the error code, or 0.
template <class Step>
int moveAll(long bytes, Step step) {
  for (long done = 0; done < bytes;) {
    const long moved = step(done, static_cast<size_t>(bytes - done));
    if (moved < 0 && errno == EINTR) continue;
    if (moved <= 0) return moved < 0 ? errno : EIO;
    done += moved;
  }
  return 0;
}

int finish(int code, int* err) {
  if (code != 0 && err != nullptr) *err = code;
  return code == 0;
}

}  // namespace

int TestHost::readFile(int fd, char* buffer, long bytes, int* err) {
  const bool fails = isDue(fileFaults.failRead);
  const long wanted = fails ? std::min(bytes, fileFaults.bytesBeforeFault) : bytes;
  const int code = moveAll(wanted, [&](long done, size_t left) { return ::read(fd, buffer + done, left); });
  return finish(fails ? fileFaults.code : code, err);
}

int TestHost::writeFile(int fd, char* buffer, long bytes, int* err) {
  const bool fails = isDue(fileFaults.failWrite);
  const long wanted = fails ? std::min(bytes, fileFaults.bytesBeforeFault) : bytes;
  const int code = moveAll(wanted, [&](long done, size_t left) { return ::write(fd, buffer + done, left); });
  return finish(fails ? fileFaults.code : code, err);
}

void HostExpandFileName(const char* in, char* out, unsigned long outSize, int flag) {
  if (flag != 0) ADD_FAILURE() << "HostExpandFileName with flag " << flag;
  std::string name = in;
  const std::string prefix = "$TMP/";
  if (name.compare(0, prefix.size(), prefix) == 0) name = host().tempDirectory() + name.substr(prefix.size());
  name.resize(std::min(name.size(), outSize - 1));
  std::memcpy(out, name.c_str(), name.size() + 1);
}

int HostFileExist(const char* name, HostErrSType* err) {
  if (err != nullptr) ADD_FAILURE() << "HostFileExist with an error record";
  return access(name, F_OK) == 0;
}

int HostFileExistSize(const char* name, long* size, int* third, HostErrSType* err) {
  if (err != nullptr || third != nullptr) ADD_FAILURE() << "HostFileExistSize with third argument or error record";
  struct stat info;
  if (stat(name, &info) != 0) return 0;
  *size = info.st_size;
  return 1;
}

int HostOpen(const char* name, int flags, int mode) { return host().open(name, flags, mode); }

int HostReadFile(int fd, char* buf, long bytes, int* err) { return host().readFile(fd, buf, bytes, err); }

int HostWriteFile(int fd, char* buf, long bytes, int* err) { return host().writeFile(fd, buf, bytes, err); }

void HostTempFileSpec(char* out, unsigned long outSize) {
  const std::string name = host().tempFileName();
  if (name.size() >= outSize) ADD_FAILURE() << "no room for a file name";
  std::memcpy(out, name.c_str(), std::min(name.size() + 1, outSize));
}
