// Reports of faults: their exact texts, streams, files and lines.
#include "tree/faults.h"

#include <sys/stat.h>
#include <unistd.h>

#include "bitmap.h"
#include "support/treemodel.h"

namespace {

using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

// The pointer as the C library prints it.
std::string printed(const void* pointer) {
  char text[40];
  std::snprintf(text, sizeof text, "%p", pointer);
  return text;
}

class FaultsTest : public ::testing::Test {
 protected:
  TestHost host;
  alignas(8) PageBytes bytes = listImage({});
  RepPageHdrSType* page = reinterpret_cast<RepPageHdrSType*>(bytes.data());

  struct Output {
    std::string out, err;
  };
  Output reportLeaf(uint64_t ref, RepPageHdrSType* leaf, int treeKind, int line) {
    CaptureStdout();
    CaptureStderr();
    ReportLeafFault(&host, ref, leaf, treeKind, line);
    Output output{GetCapturedStdout(), GetCapturedStderr()};
    return output;
  }
};

TEST_F(FaultsTest, ALeafFaultOfACachedTreeTellsPointerPageKindAndLineAndReportsToTheCache) {
  putU8(bytes.data(), at::pageKind, 9);
  putU64(bytes.data(), at::pageId, 1234);
  for (const int treeKind : {1, 2, 3}) {
    const Output output = reportLeaf(77, page, treeKind, 10327);
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "Bitmap page fault, pageHdrPtr 0x" + printed(page) + " page 77 treeKind " +
                              std::to_string(treeKind) +
                              ", bitmap line 10327 \nBitmap page fault, pageHdr: page 1234 pageKind 9 \n");
    host.expectReports({"cache fault: page 77 \"Bitmap page fault\" bitmap:920 with page"});
  }
}

TEST_F(FaultsTest, ALeafFaultWithoutAPagePrintsTheFirstLineOnlyWithANullPointer) {
  const Output output = reportLeaf(77, nullptr, 1, 2397);
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(output.err,
            "Bitmap page fault, pageHdrPtr 0x" + printed(nullptr) + " page 77 treeKind 1, bitmap line 2397 \n");
  host.expectReports({"cache fault: page 77 \"Bitmap page fault\" bitmap:920"});
}

TEST_F(FaultsTest, ALeafFaultOfAHeapTreeEndsInTheGuaranteeAndNeverInTheCacheReport) {
  putU8(bytes.data(), at::pageKind, 0);
  putU64(bytes.data(), at::pageId, 0x7777);
  const Output output = reportLeaf(reinterpret_cast<uint64_t>(page), page, 0, 2315);
  EXPECT_EQ(output.out, "Bitmap page fault in C heap bitmap");
  EXPECT_EQ(output.err, "Bitmap page fault, pageHdrPtr 0x" + printed(page) + " page " +
                            std::to_string(reinterpret_cast<uint64_t>(page)) +
                            " treeKind 0, bitmap line 2315 \nBitmap page fault, pageHdr: page 30583 pageKind 0 \n");
  host.expectReports({"guarantee bitmap:970"});
}

TEST_F(FaultsTest, ALeafFaultOfAHeapTreeWithoutAPageIsReportedTheSameWay) {
  const Output output = reportLeaf(0, nullptr, 0, 2397);
  EXPECT_EQ(output.out, "Bitmap page fault in C heap bitmap");
  EXPECT_EQ(output.err,
            "Bitmap page fault, pageHdrPtr 0x" + printed(nullptr) + " page 0 treeKind 0, bitmap line 2397 \n");
  host.expectReports({"guarantee bitmap:970"});
}

TEST_F(FaultsTest, AReferenceIsPrintedUnsignedAndAPageIdSigned) {
  putU64(bytes.data(), at::pageId, ~uint64_t{0});
  const Output output = reportLeaf(~uint64_t{0}, page, -2, 1);
  EXPECT_EQ(output.err, "Bitmap page fault, pageHdrPtr 0x" + printed(page) +
                            " page 18446744073709551615 treeKind -2, bitmap line 1 \n"
                            "Bitmap page fault, pageHdr: page -1 pageKind 12 \n");
  host.takeReports();
}

TEST_F(FaultsTest, EveryLineIsFlushedBeforeTheReportThatFollowsIt) {
  std::vector<long> outAtReport, errAtReport;
  host.onReport = [&](const Report&) {
    struct stat info;
    ASSERT_EQ(fstat(STDOUT_FILENO, &info), 0);
    outAtReport.push_back(info.st_size);
    ASSERT_EQ(fstat(STDERR_FILENO, &info), 0);
    errAtReport.push_back(info.st_size);
  };
  const Output output = reportLeaf(reinterpret_cast<uint64_t>(page), page, 0, 1);
  EXPECT_EQ(outAtReport, std::vector<long>{static_cast<long>(output.out.size())});
  EXPECT_EQ(errAtReport, std::vector<long>{static_cast<long>(output.err.size())});
  host.takeReports();
}

TEST_F(FaultsTest, ADiagnosticIsPrintedAsItIsAndFlushedAtOnce) {
  CaptureStdout();
  printDiagnostic("100% of %s\n");
  struct stat info;
  ASSERT_EQ(fstat(STDOUT_FILENO, &info), 0);
  EXPECT_EQ(info.st_size, 11);
  EXPECT_EQ(GetCapturedStdout(), "100% of %s\n");
}

TEST_F(FaultsTest, AHeaderFaultIsForwardedWithoutFileAndLine) {
  putU64(bytes.data(), at::pageId, 5);
  BmPageReportHeaderFault(&host, REP_BM_INTERNAL_PAGE, page);
  host.expectReports({"header fault: page 5 is not of kind 7, null:0"});
}

TEST_F(FaultsTest, ACarefulFaultHasNoPageAndNoState) {
  reportCarefulFault(&host, 99, "illegal shadow");
  ASSERT_EQ(host.reports().size(), 1u);
  EXPECT_FALSE(host.reports()[0].hasPage);
  EXPECT_FALSE(host.reports()[0].hasState);
  host.expectReports({"cache fault: page 99 \"illegal shadow\" bitmap:920"});
}

TEST_F(FaultsTest, AGuaranteeThatHoldsReportsNothing) {
  EXPECT_TRUE(UTL_GUARANTEE(true, "file", 12));
  EXPECT_TRUE(UTL_GUARANTEE(true));
  host.expectReports({});
}

TEST_F(FaultsTest, AGuaranteeThatFailsReportsItsFileAndLineAndGoesOn) {
  EXPECT_FALSE(UTL_GUARANTEE(false, "reposdisk", 1196));
  EXPECT_FALSE(UTL_GUARANTEE(false, 970));
  ASSERT_EQ(host.reports().size(), 2u);
  EXPECT_EQ(host.reports()[0].text, "UTL_GUARANTEE failed");
  host.expectReports({"guarantee reposdisk:1196", "guarantee bitmap:970"});
}

TEST_F(FaultsTest, AGuaranteeWithoutALineReportsTheSourceLine) {
  UTL_GUARANTEE(false);
  const int line = __LINE__ - 1;
  host.expectReports({"guarantee bitmap:" + std::to_string(line)});
}

TEST_F(FaultsTest, IllegalBytesUsedArePrintedAndReportedAtTheLineGiven) {
  for (const int used : {31, 0, -1, 16385, 32767}) {
    page->bytesUsed = static_cast<int16_t>(used);
    CaptureStdout();
    EXPECT_FALSE(requireLegalBytesUsed(*page, 2164));
    EXPECT_EQ(GetCapturedStdout(), "illegal bytesUsed in a page\n");
    host.expectReports({"guarantee bitmap:2164"});
  }
  for (const int used : {32, 40, 16384}) {
    page->bytesUsed = static_cast<int16_t>(used);
    EXPECT_TRUE(requireLegalBytesUsed(*page, 2164));
  }
}

TEST_F(FaultsTest, TheSignificantBodyNeverReachesOutOfThePage) {
  const std::pair<int, int> cases[] = {{-32768, 0}, {0, 0},         {31, 0},        {32, 0},
                                       {40, 8},     {16384, 16352}, {16385, 16352}, {32767, 16352}};
  for (const auto& [used, body] : cases) {
    page->bytesUsed = static_cast<int16_t>(used);
    EXPECT_EQ(significantBodyBytes(*page), body);
  }
}

}  // namespace
