// The file operations of real programs.
#include "hostfiles.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>
#include <vector>

#include "host/hostfixture.h"
#include "utl.h"

namespace {

using HostFilesTest = HostTest;

// ---------------------------------------------------------------------------------------------------------
// Names

TEST_F(HostFilesTest, APlainNameStaysAsItIs) {
  EXPECT_EQ(expanded("/tmp/a file"), "/tmp/a file");
  EXPECT_EQ(expanded(""), "");
}

TEST_F(HostFilesTest, ALeadingTildeIsTheHomeDirectory) {
  setenv("HOME", "/home/someone", 1);
  EXPECT_EQ(expanded("~"), "/home/someone");
  EXPECT_EQ(expanded("~/x"), "/home/someone/x");
  EXPECT_EQ(expanded("~x"), "~x");
  EXPECT_EQ(expanded("/a/~"), "/a/~");
  unsetenv("HOME");
  EXPECT_NE(expanded("~/x"), "~/x");  // from the list of users
  setenv("HOME", "/root", 1);
}

TEST_F(HostFilesTest, AVariableIsItsValueAndAnUnsetOneItself) {
  setenv("BITMAP_TEST_DIR", "/data", 1);
  unsetenv("BITMAP_TEST_NONE");
  EXPECT_EQ(expanded("$BITMAP_TEST_DIR/x"), "/data/x");
  EXPECT_EQ(expanded("a$BITMAP_TEST_DIR.b$BITMAP_TEST_DIR"), "a/data.b/data");
  EXPECT_EQ(expanded("$BITMAP_TEST_DIRx"), "$BITMAP_TEST_DIRx");
  EXPECT_EQ(expanded("$BITMAP_TEST_NONE/x"), "$BITMAP_TEST_NONE/x");
  EXPECT_EQ(expanded("a$"), "a$");
  EXPECT_EQ(expanded("$$ $1 $/"), "$$ $1 $/");
}

TEST_F(HostFilesTest, ANameThatDoesNotFitIsEmptyAndNothingIsOverrun) {
  EXPECT_EQ(expanded("1234567", 8), "1234567");
  EXPECT_EQ(expanded("12345678", 8), "");
  EXPECT_EQ(expanded("x", 1), "");
  setenv("BITMAP_TEST_LONG", std::string(5000, 'l').c_str(), 1);
  EXPECT_EQ(expanded("$BITMAP_TEST_LONG"), "");
  char untouched = '#';
  HostExpandFileName("x", &untouched, 0, 0);
  EXPECT_EQ(untouched, '#');
}

TEST_F(HostFilesTest, TemporaryNamesDifferAndDoNotExist) {
  char first[1024];
  char second[1024];
  HostTempFileSpec(first, sizeof first);
  HostTempFileSpec(second, sizeof second);
  EXPECT_STRNE(first, second);
  EXPECT_EQ(HostFileExist(first, nullptr), 0);
  setenv("TMPDIR", directory.c_str(), 1);
  HostTempFileSpec(first, sizeof first);
  EXPECT_EQ(std::string(first).rfind(directory, 0), 0U);
  unsetenv("TMPDIR");
  char tiny[5] = "####";
  HostTempFileSpec(tiny, sizeof tiny);
  EXPECT_STREQ(tiny, "");
}

// ---------------------------------------------------------------------------------------------------------
// Opening

TEST_F(HostFilesTest, ANewFileIsTheOwnersAndMadeOnlyOnce) {
  const std::string name = directory + "new";
  const int fd = HostOpen(name.c_str(), BM_HOST_CREATE_FLAGS, BM_HOST_OWNER_MODE);
  ASSERT_NE(fd, -1);
  const int flags = fcntl(fd, F_GETFL);
  EXPECT_EQ(flags & O_ACCMODE, O_WRONLY);
  EXPECT_NE(flags & O_APPEND, 0);
  EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
  struct stat info;
  fstat(fd, &info);
  EXPECT_EQ(info.st_mode & 07777, 0600U);
  close(fd);
  EXPECT_EQ(HostOpen(name.c_str(), BM_HOST_CREATE_FLAGS, BM_HOST_OWNER_MODE), -1);
  EXPECT_EQ(errno, EEXIST);
}

TEST_F(HostFilesTest, WritesAreAppended) {
  const std::string name = directory + "append";
  const int fd = HostOpen(name.c_str(), BM_HOST_CREATE_FLAGS, BM_HOST_OWNER_MODE);
  char text[] = "abc";
  EXPECT_EQ(HostWriteFile(fd, text, 3, nullptr), 1);
  lseek(fd, 0, SEEK_SET);
  EXPECT_EQ(HostWriteFile(fd, text, 3, nullptr), 1);
  close(fd);
  long size = 0;
  EXPECT_NE(HostFileExistSize(name.c_str(), &size, nullptr, nullptr), 0);
  EXPECT_EQ(size, 6);
}

TEST_F(HostFilesTest, UnknownFlagsAreRefused) {
  for (const int flags : {0x2, 0x40, 0x100, 0x509 | 0x1000, -1}) {
    errno = 0;
    EXPECT_EQ(HostOpen((directory + "none").c_str(), flags, 0), -1);
    EXPECT_EQ(errno, EINVAL);
  }
  EXPECT_EQ(HostFileExist((directory + "none").c_str(), nullptr), 0);
}

TEST_F(HostFilesTest, AMissingFileHasItsCode) {
  HostErrSType err;
  int third = 7;
  long size = 55;
  EXPECT_EQ(HostFileExist((directory + "none").c_str(), &err), 0);
  EXPECT_EQ(err.code, ENOENT);
  EXPECT_EQ(HostFileExistSize((directory + "none").c_str(), &size, &third, &err), 0);
  EXPECT_EQ(size, 55);
  EXPECT_EQ(HostOpen((directory + "none").c_str(), 0, 0), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_NE(HostFileExist(directory.c_str(), &err), 0);
  EXPECT_EQ(err.code, 0);
}

TEST_F(HostFilesTest, APipeWithoutAWriterDoesNotHoldUpTheReader) {
  const std::string name = directory + "pipe";
  ASSERT_EQ(mkfifo(name.c_str(), 0600), 0);
  std::string file = name;
  RepTreeRootSType root = pc.invalidHeapTreeRoot;
  int err = 0;
  EXPECT_EQ(BmReadFromFile(&pc, file.data(), &root, &err), 0);
  EXPECT_EQ(err, ENODATA);
}

// ---------------------------------------------------------------------------------------------------------
// Moving

TEST_F(HostFilesTest, AReadGoesOnUntilAllBytesAreThere) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  std::thread writer([&] {
    for (int i = 0; i < 50; ++i) {
      const char byte = static_cast<char>(i);
      ASSERT_EQ(write(ends[1], &byte, 1), 1);
      std::this_thread::yield();
    }
  });
  char bytes[50] = {};
  EXPECT_EQ(HostReadFile(ends[0], bytes, 50, nullptr), 1);
  for (int i = 0; i < 50; ++i) EXPECT_EQ(bytes[i], i);
  writer.join();
  close(ends[0]);
  close(ends[1]);
}

TEST_F(HostFilesTest, AFileThatEndsTooEarlyIsAFailureWithACode) {
  const std::string name = directory + "short";
  int fd = HostOpen(name.c_str(), BM_HOST_CREATE_FLAGS, BM_HOST_OWNER_MODE);
  char text[] = "abc";
  HostWriteFile(fd, text, 3, nullptr);
  close(fd);
  fd = HostOpen(name.c_str(), 0, 0);
  int err = 0;
  EXPECT_EQ(HostReadFile(fd, text, 4, &err), 0);
  EXPECT_EQ(err, ENODATA);
  EXPECT_EQ(HostReadFile(fd, text, 1, nullptr), 0);
  EXPECT_EQ(HostReadFile(fd, text, 0, &err), 1);
  EXPECT_EQ(HostReadFile(fd, text, -1, &err), 0);
  EXPECT_EQ(err, EINVAL);
  close(fd);
  EXPECT_EQ(HostReadFile(fd, text, 1, &err), 0);
  EXPECT_EQ(err, EBADF);
}

TEST_F(HostFilesTest, ADirectoryCannotBeRead) {
  const int fd = HostOpen(directory.c_str(), 0, 0);
  ASSERT_NE(fd, -1);
  char byte;
  int err = 0;
  EXPECT_EQ(HostReadFile(fd, &byte, 1, &err), 0);
  EXPECT_EQ(err, EISDIR);
  close(fd);
}

void ignoreSignal(int) {}

TEST_F(HostFilesTest, AnInterruptedReadStartsAgain) {
  struct sigaction action {};
  action.sa_handler = ignoreSignal;  // without SA_RESTART: a waiting read comes back with EINTR
  ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pthread_t reader = pthread_self();
  std::thread other([&] {
    for (int i = 0; i < 20; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      pthread_kill(reader, SIGUSR1);
    }
    const char byte = 42;
    ASSERT_EQ(write(ends[1], &byte, 1), 1);
  });
  char byte = 0;
  EXPECT_EQ(HostReadFile(ends[0], &byte, 1, nullptr), 1);
  EXPECT_EQ(byte, 42);
  other.join();
  close(ends[0]);
  close(ends[1]);
}

TEST_F(HostFilesTest, AFullDeviceIsAFailureWithItsCode) {
  const int fd = HostOpen("/dev/full", 0x1, 0);
  ASSERT_NE(fd, -1);
  char byte = 1;
  int err = 0;
  EXPECT_EQ(HostWriteFile(fd, &byte, 1, &err), 0);
  EXPECT_EQ(err, ENOSPC);
  close(fd);
}

TEST_F(HostFilesTest, AWriteThatStopsHalfwayLeavesWhatFitsAndFails) {
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  sigaction(SIGXFSZ, &ignore, nullptr);
  rlimit old;
  getrlimit(RLIMIT_FSIZE, &old);
  const rlimit small{1000, old.rlim_max};
  std::vector<unsigned long> bits;
  for (unsigned long i = 0; i < 500; ++i) bits.push_back(i);
  RepTreeRootSType root = pc.invalidHeapTreeRoot;
  BmSetBitsFromSortedArray_(&pc, &root, bits.data(), bits.data() + bits.size());
  std::string name = directory + "half";
  int err = 0;
  setrlimit(RLIMIT_FSIZE, &small);
  EXPECT_EQ(BmWriteToFileNonDestructive(&pc, name.data(), &root, &err), 0);
  setrlimit(RLIMIT_FSIZE, &old);
  EXPECT_EQ(err, EFBIG);
  long size = 0;
  HostFileExistSize(name.c_str(), &size, nullptr, nullptr);
  EXPECT_EQ(size, 1000);
  EXPECT_TRUE(HostLogIsKept());
  EXPECT_EQ(BmReadFromFile(&pc, name.data(), &root, &err), 0);
  BmDisposeTree(&pc, &root);
}

TEST_F(HostFilesTest, TheLogIsKeptOnRequest) {
  UtlRemoveLogOnExit(1);
  EXPECT_FALSE(HostLogIsKept());
  UtlRemoveLogOnExit(0);
  EXPECT_TRUE(HostLogIsKept());
}

// ---------------------------------------------------------------------------------------------------------
// The module on this host

TEST_F(HostFilesTest, TheModulesOwnFileCheckPasses) {
  setenv("TMPDIR", directory.c_str(), 1);
  BmTestBitmapToFileCode(&pc);
  unsetenv("TMPDIR");
}

TEST_F(HostFilesTest, TreesOfSeveralChunksComeBack) {
  setenv("BITMAP_TEST_DIR", directory.c_str(), 1);
  std::string name = "$BITMAP_TEST_DIR/large";
  RepTreeRootSType root = pc.invalidHeapTreeRoot;
  RepTreeRootSType back = pc.invalidHeapTreeRoot;
  BmSetBitRange_(&pc, &root, 1000, 700000);
  int err = 0;
  EXPECT_EQ(BmWriteToFileNonDestructive(&pc, name.data(), &root, &err), 1);
  BmCheckResultSType check;
  EXPECT_EQ(BmCheckFile(name.c_str(), &check), 1) << check.sentence;
  EXPECT_EQ(check.itemIndex, 699001U);
  EXPECT_EQ(BmReadFromFile(&pc, name.data(), &back, &err), 1);
  EXPECT_EQ(BmFindNumBitsSet_(&pc, &back), 699001U);
  RepTreeRootSType rest = pc.invalidHeapTreeRoot;
  BmDiff(&pc, &root, &back, &rest);
  EXPECT_EQ(BmIsEmpty(&pc, &rest), 1);
  BmDisposeTree(&pc, &root);
  BmDisposeTree(&pc, &back);
}

}  // namespace
