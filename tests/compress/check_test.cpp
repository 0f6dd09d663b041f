// What BmCheckLogRec says about records.
#include <gtest/gtest.h>

#include <functional>

#include "compress/records.h"
#include "support/treemodel.h"

namespace {

constexpr uint64_t SPAN = BM_LEAF_BITS;

class RecordCheckTest : public ::testing::Test {
 protected:
  TestHost host;
  BmCheckResultSType found{};

  // The fault of a record, with its place in `found`.
  BmCheckFaultEType check(RecordBuffer& record, size_t bytes) {
    const int sound = BmCheckLogRec(record.raw(), bytes, &found);
    EXPECT_EQ(sound == 1, found.fault == BM_CHECK_SOUND);
    EXPECT_GT(std::strlen(found.sentence), 0U);
    EXPECT_EQ(found.sysError, 0);
    return found.fault;
  }
  BmCheckFaultEType check(RecordBuffer&& record) { return check(record, record.bytes()); }
  BmCheckFaultEType checkChanged(RecordBuffer&& record, const std::function<void(RecordBuffer&)>& change) {
    change(record);
    return check(record, record.bytes());
  }
};

TEST_F(RecordCheckTest, SoundRecordsOfBothFormsAreSound) {
  EXPECT_EQ(check(recordOfWords({}, 0)), BM_CHECK_SOUND);
  EXPECT_EQ(check(recordOfWords({0x15, 0x5, 2, 0x4000, 0x3FC, 0xFFFF, 0xFFFF}, 4)), BM_CHECK_SOUND);
  EXPECT_EQ(found.itemIndex, 4U);
  EXPECT_EQ(found.byteOffset, 56U);
  EXPECT_EQ(check(recordOfImage(SPAN, {1, 2, 130751}, 3)), BM_CHECK_SOUND);
  EXPECT_EQ(found.byteOffset, 16392U);
}

TEST_F(RecordCheckTest, ADescendingRecordIsSound) {
  EXPECT_EQ(check(recordOfWords({0x0191, 0, 0, 99}, 2)), BM_CHECK_SOUND);
}

TEST_F(RecordCheckTest, ABufferLongerThanTheRecordIsSound) {
  RecordBuffer record(100);
  LogComprResourcePackerType packer = record.packer();
  const unsigned long bit = 9;
  packer.addBits(&bit, 1);
  EXPECT_EQ(check(record, 100), BM_CHECK_SOUND);
  EXPECT_EQ(check(record, 48), BM_CHECK_SOUND);
}

TEST_F(RecordCheckTest, ARecordWithoutItsWholeHeadIsTooShort) {
  RecordBuffer record = recordOfWords({}, 0);
  for (size_t bytes = 0; bytes < 40; ++bytes) {
    EXPECT_EQ(check(record, bytes), BM_CHECK_SIZE);
    EXPECT_EQ(found.byteOffset, bytes);
  }
}

TEST_F(RecordCheckTest, ABufferThatEndsBeforeTheBodyIsTooShort) {
  RecordBuffer record = recordOfWords({0x15}, 1);
  EXPECT_EQ(check(record, 42), BM_CHECK_SOUND);
  EXPECT_EQ(check(record, 41), BM_CHECK_SIZE);
  EXPECT_EQ(found.byteOffset, 41U);
  RecordBuffer image = recordOfImage(0, {1}, 1);
  EXPECT_EQ(check(image, 16391), BM_CHECK_SIZE);
}

TEST_F(RecordCheckTest, ARecordAtAnOddAddressIsMisaligned) {
  alignas(8) unsigned char bytes[64] = {};
  for (int offset = 1; offset < 4; ++offset) {
    EXPECT_EQ(BmCheckLogRec(bytes + offset, 60, &found), 0);
    EXPECT_EQ(found.fault, BM_CHECK_ALIGNMENT);
  }
}

TEST_F(RecordCheckTest, AWordCountThatIsNeitherFormIsAFaultOfTheHead) {
  EXPECT_EQ(checkChanged(recordOfWords({0x15}, 1), [](RecordBuffer& r) { putU16(r.raw(), 22, 0xFFFF); }),
            BM_CHECK_HEADER);
  EXPECT_EQ(found.byteOffset, 22U);
}

TEST_F(RecordCheckTest, ASizeThatDoesNotFitTheBodyIsFound) {
  for (const int size : {0, 39, 40, 46, 56, 65535}) {
    EXPECT_EQ(checkChanged(recordOfWords({0x15}, 1),
                           [&](RecordBuffer& r) { putU16(r.raw(), 12, static_cast<uint16_t>(size)); }),
              BM_CHECK_SIZE);
    EXPECT_EQ(found.byteOffset, 12U);
  }
}

TEST_F(RecordCheckTest, TheLargestWordCountDoesNotWrapTheSize) {
  RecordBuffer record = recordOfWords({0x15}, 1);
  putU16(record.raw(), 22, 0x7FFF);
  for (int size = 0; size < 65536; ++size) {
    putU16(record.raw(), 12, static_cast<uint16_t>(size));
    ASSERT_EQ(check(record, record.bytes()), BM_CHECK_SIZE);
  }
}

TEST_F(RecordCheckTest, AnIllegalTagIsFoundAtItsPlace) {
  EXPECT_EQ(check(recordOfWords({0x15, 2, 9, 7}, 3)), BM_CHECK_TAG);
  EXPECT_EQ(found.byteOffset, 46U);
  EXPECT_EQ(found.itemIndex, 2U);
}

TEST_F(RecordCheckTest, AnItemCutOffByTheEndIsFound) {
  EXPECT_EQ(check(recordOfWords({0x15, 2}, 2)), BM_CHECK_CUT_OFF);
  EXPECT_EQ(found.byteOffset, 42U);
  EXPECT_EQ(check(recordOfWords({0, 0}, 1)), BM_CHECK_CUT_OFF);
  EXPECT_EQ(check(recordOfWords({0}, 1)), BM_CHECK_CUT_OFF);
}

TEST_F(RecordCheckTest, AnItemOf2To40OrAboveIsFound) {
  EXPECT_EQ(check(recordOfWords({0x3FC, 0xFFFF, 0xFFFF, 5}, 2)), BM_CHECK_RANGE);
  EXPECT_EQ(found.byteOffset, 46U);
  EXPECT_EQ(check(recordOfWords({0x400, 0, 0}, 1)), BM_CHECK_RANGE);
}

TEST_F(RecordCheckTest, ACountThatIsNotThatOfTheItemsIsFound) {
  for (const int count : {0, 1, 3, -1}) {
    EXPECT_EQ(check(recordOfWords({0x15, 5}, count)), BM_CHECK_COUNT);
    EXPECT_EQ(found.byteOffset, 16U);
    EXPECT_EQ(found.itemIndex, 2U);
  }
  EXPECT_EQ(check(recordOfImage(0, {1, 2}, 3)), BM_CHECK_COUNT);
}

TEST_F(RecordCheckTest, AnImageThatBeginsNowhereIsMisaligned) {
  for (const uint64_t first : {1UL, 64UL, SPAN - 1, BM_END_BIT, BM_END_BIT / SPAN * SPAN + SPAN, ~0UL}) {
    EXPECT_EQ(check(recordOfImage(first, {}, 0)), BM_CHECK_ALIGNMENT) << first;
    EXPECT_EQ(found.byteOffset, 40U);
  }
}

TEST_F(RecordCheckTest, AnImageWithBitsBehindTheHighestOneIsOutOfRange) {
  const uint64_t lastSpan = spanBase(BM_HIGHEST_BIT);
  EXPECT_EQ(check(recordOfImage(lastSpan, {BM_HIGHEST_BIT}, 1)), BM_CHECK_SOUND);
  EXPECT_EQ(check(recordOfImage(lastSpan, {BM_HIGHEST_BIT, BM_HIGHEST_BIT + 1}, 2)), BM_CHECK_RANGE);
  EXPECT_EQ(found.itemIndex, 250U);
  EXPECT_EQ(found.byteOffset, 48U + 250 * 8);
}

TEST_F(RecordCheckTest, RandomBytesInExactBuffersAreNeverOverread) {
  Random random(testSeed());
  for (int round = 0; round < 20000; ++round) {
    RecordBuffer record(40 + 8 * random.below(12));
    for (size_t i = 0; i < record.bytes(); ++i) record.raw()[i] = static_cast<unsigned char>(random.next());
    if (random.oneIn(2)) {
      putU16(record.raw(), 12, static_cast<uint16_t>(record.bytes()));
      putU16(record.raw(), 22, static_cast<uint16_t>((record.bytes() - 40) / 2));
    }
    check(record, record.bytes());
  }
}

}  // namespace
