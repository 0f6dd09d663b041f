// The module's own check of its file code.
#include "file/selfcheck.h"

#include <cerrno>

#include "file/files.h"

namespace {

class SelfCheckTest : public FileTest {
 protected:
  // One round trip; what it printed on standard output is in `printed`.
  int roundTrip(int numBits) {
    ::testing::internal::CaptureStdout();
    const int result = watched([&] { return doBmTestBitmapToFileCode(&host, numBits); });
    printed = ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(host.heapPages(), 0U);
    return result;
  }

  std::string printed;
};

TEST_F(SelfCheckTest, TheWholeCheckPassesAndLeavesNoFile) {
  watched([&] {
    BmTestBitmapToFileCode(&host);
    return 0;
  });
  EXPECT_EQ(host.openedFiles().size(), 6U);
  for (const std::string& file : host.openedFiles()) EXPECT_FALSE(fileExists(file)) << file;
  EXPECT_EQ(host.heapPages(), 0U);
  EXPECT_EQ(host.count(EventKind::locate), 0U);
}

TEST_F(SelfCheckTest, ARoundTripOfNoBitsWritesAHeaderOnly) {
  EXPECT_EQ(roundTrip(0), 1);
  EXPECT_EQ(printed, "");
  EXPECT_EQ(host.bufferHistory().size(), 0U);
  EXPECT_EQ(host.count(EventKind::heapAlloc), 0U);
}

TEST_F(SelfCheckTest, ARoundTripCarriesAsManyBitsAsAskedFor) {
  EXPECT_EQ(roundTrip(2000), 1);
  EXPECT_EQ(host.bufferHistory()[0].bytes, 16000U);
  EXPECT_EQ(host.bufferHistory()[1].bytes, 16000U);
}

TEST_F(SelfCheckTest, AFailedWriteIsToldAndLeavesTheFile) {
  host.fileFaults = {0, 4, 0, ENOSPC, 0};
  EXPECT_EQ(roundTrip(10), 0);
  EXPECT_EQ(printed, "Failure in BmWriteToFileNonDestructive()\n");
  EXPECT_EQ(messages, Messages{"Error writing to file"});
  EXPECT_TRUE(fileExists(host.openedFiles()[0]));
}

TEST_F(SelfCheckTest, AFailedReadIsToldWithItsCodeAndLeavesTheFile) {
  host.fileFaults = {4, 0, 0, EIO, 0};
  EXPECT_EQ(roundTrip(10), 0);
  EXPECT_EQ(printed, "Failure in BmReadFromFile(), errno=5\n");
  EXPECT_TRUE(fileExists(host.openedFiles()[0]));
}

TEST_F(SelfCheckTest, ATemporaryNameThatExistsMakesTheWriteFail) {
  // the host counts its names up: the next one but this is the one that the round trip will get
  const std::string taken = name.substr(0, name.size() - 1) + "1";
  putFile(taken, {1});
  EXPECT_EQ(roundTrip(10), 0);
  EXPECT_EQ(messages, Messages{"file already exists"});
}

TEST_F(SelfCheckTest, EachFailedTripIsReportedAtItsLine) {
  host.fileFaults = {0, 1, 0, ENOSPC, 0};
  watched([&] {
    BmTestBitmapToFileCode(&host);
    return 0;
  });
  host.expectReports({"guarantee bitmap:11859"});
  // the header of the second trip is behind the three writes of the first
  host.fileFaults = {0, 4, 0, ENOSPC, 0};
  watched([&] {
    BmTestBitmapToFileCode(&host);
    return 0;
  });
  host.expectReports({"guarantee bitmap:11860"});
  host.fileFaults = {0, 8, 0, ENOSPC, 0};
  watched([&] {
    BmTestBitmapToFileCode(&host);
    return 0;
  });
  host.expectReports({"guarantee bitmap:11861"});
}

}  // namespace
