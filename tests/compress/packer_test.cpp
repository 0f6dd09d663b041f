// The items of a record and its head, packed and unpacked.
#include <gtest/gtest.h>

#include "compress/records.h"
#include "support/testhost.h"
#include "support/treemodel.h"

namespace {

using Words = std::vector<uint16_t>;
using Values = std::vector<unsigned long>;

class PackerTest : public ::testing::Test {
 protected:
  TestHost host;

  // The words of a record that holds these values.
  static Words packed(const Values& values) {
    RecordBuffer record(4096);
    LogComprResourcePackerType packer = record.packer();
    EXPECT_EQ(packer.addBits(values.data(), static_cast<unsigned>(values.size())), values.size());
    return record.words();
  }

  static Values unpacked(LogComprResourceUnpackerType& items) {
    Values values(100);
    values.resize(items.getBits(100, values.data()));
    return values;
  }
};

TEST_F(PackerTest, AFreshRecordIsEmpty) {
  RecordBuffer record(100);
  const LogComprResourcePackerType packer = record.packer();
  EXPECT_EQ(record.recSize(), 40);
  EXPECT_EQ(record.numBits(), 0);
  EXPECT_EQ(record.bodyWords(), 0);
  EXPECT_EQ(packer.lastBit, 0U);
  EXPECT_EQ(packer.denseBody, 0);
  EXPECT_EQ(reinterpret_cast<unsigned char*>(packer.cursor), record.raw() + 40);
  EXPECT_EQ(reinterpret_cast<unsigned char*>(packer.limit), record.raw() + 100);
}

TEST_F(PackerTest, OnlyTheFieldsOfTheModuleAreWritten) {
  RecordBuffer record(100);
  LogComprResourcePackerType packer = record.packer();
  const unsigned long bit = 7;
  packer.addBits(&bit, 1);
  for (size_t i = 0; i < 40; ++i) {
    const bool ours = (i >= 12 && i < 14) || (i >= 16 && i < 20) || (i >= 22 && i < 24);
    EXPECT_TRUE(ours || record.raw()[i] == 0xA5) << "byte " << i;
  }
}

TEST_F(PackerTest, FiveAsTheFirstValueIsOneWord) { EXPECT_EQ(packed({5}), Words{0x0015}); }

TEST_F(PackerTest, TheWidthOfAnItemFollowsItsDelta) {
  EXPECT_EQ(packed({16383}), Words{0xFFFD});
  EXPECT_EQ(packed({16384}), (Words{0x0002, 0x4000}));
  EXPECT_EQ(packed({(1UL << 30) - 1}), (Words{0xFFFE, 0xFFFF}));
  EXPECT_EQ(packed({1UL << 30}), (Words{0x0000, 0x4000, 0x0000}));
}

TEST_F(PackerTest, TheHighestBitIsAbsolute) { EXPECT_EQ(packed({0xFFFFFFFFFF}), (Words{0x03FC, 0xFFFF, 0xFFFF})); }

TEST_F(PackerTest, AStepDownwardIsAbsolute) { EXPECT_EQ(packed({100, 99}), (Words{0x0191, 0, 0, 99})); }

TEST_F(PackerTest, ARepeatedValueIsADeltaOfZero) { EXPECT_EQ(packed({100, 100}), (Words{0x0191, 0x0001})); }

TEST_F(PackerTest, LastBitCarriesOverBetweenCalls) {
  RecordBuffer record(100);
  LogComprResourcePackerType packer = record.packer();
  const Values values{1000, 1001};
  packer.addBits(values.data(), 1);
  packer.addBits(values.data() + 1, 1);
  EXPECT_EQ(record.words(), (Words{1000 << 2 | 1, 1 << 2 | 1}));
  EXPECT_EQ(record.numBits(), 2);
}

TEST_F(PackerTest, RecSizeRoundsTheBodyUpToEightBytes) {
  const Values values{1, 2, 3, 4, 5};
  const int sizes[] = {40, 48, 48, 48, 48, 56};
  for (unsigned n = 0; n <= 5; ++n) {
    RecordBuffer record(100);
    LogComprResourcePackerType packer = record.packer();
    packer.addBits(values.data(), n);
    EXPECT_EQ(record.recSize(), sizes[n]) << n << " words";
    EXPECT_EQ(record.bodyWords(), static_cast<int>(n));
  }
}

TEST_F(PackerTest, PackingStopsWhenFewerThanThreeWordsAreLeft) {
  for (unsigned room = 0; room <= 8; ++room) {
    RecordBuffer record(40 + 2 * room);
    LogComprResourcePackerType packer = record.packer();
    const Values values{1, 2, 3, 4, 5, 6, 7, 8};
    const unsigned expected = room < 3 ? 0 : room - 2;
    EXPECT_EQ(packer.addBits(values.data(), 8), expected) << room;
    EXPECT_EQ(record.numBits(), static_cast<int>(expected));
    EXPECT_EQ(packer.addBits(values.data(), 8), 0U);
  }
}

TEST_F(PackerTest, AnAbsoluteItemUsesTheLastThreeWords) {
  RecordBuffer record(40 + 6);
  LogComprResourcePackerType packer = record.packer();
  const unsigned long value = BM_HIGHEST_BIT;
  EXPECT_EQ(packer.addBits(&value, 1), 1U);
  EXPECT_EQ(packer.cursor, packer.limit);
}

TEST_F(PackerTest, AFullRecordStillHasItsHeadRewritten) {
  RecordBuffer record(40 + 6);
  LogComprResourcePackerType packer = record.packer();
  const Values values{1, 2};
  EXPECT_EQ(packer.addBits(values.data(), 2), 1U);
  putU16(record.raw(), 12, 0);
  putU16(record.raw(), 22, 99);
  EXPECT_EQ(packer.addBits(values.data() + 1, 1), 0U);
  EXPECT_EQ(record.recSize(), 48);
  EXPECT_EQ(record.bodyWords(), 1);
  EXPECT_EQ(record.numBits(), 1);
}

TEST_F(PackerTest, ARecordWithoutRoomForItsHeadTakesNothing) {
  RecordBuffer record(40);
  LogComprResourcePackerType packer(record.rec(), 8);
  const unsigned long value = 1;
  EXPECT_EQ(packer.addBits(&value, 1), 0U);
  EXPECT_EQ(record.recSize(), 40);
}

TEST_F(PackerTest, AVeryLargeBufferIsFilledOnlyAsFarAsRecSizeCounts) {
  RecordBuffer record(200000);
  LogComprResourcePackerType packer = record.packer();
  Values values;
  for (unsigned long i = 1; i <= 100000; ++i) values.push_back(i);
  const unsigned taken = packer.addBits(values.data(), 100000);
  EXPECT_EQ(taken, 32742U);  // of 32,744 words two stay free
  EXPECT_EQ(record.recSize(), 65528);
  EXPECT_EQ(record.bodyWords(), 32742);
}

TEST_F(PackerTest, ValuesComeBackAsTheyWentIn) {
  const Values values{0, 0, 5, 16388, 16389, 1UL << 30, (1UL << 31) + 1, BM_HIGHEST_BIT, 3, 3};
  RecordBuffer record(4096);
  LogComprResourcePackerType packer = record.packer();
  packer.addBits(values.data(), static_cast<unsigned>(values.size()));
  LogComprResourceUnpackerType items(record.rec());
  EXPECT_EQ(unpacked(items), values);
  EXPECT_EQ(items.cursor, items.end);
  unsigned long none;
  EXPECT_EQ(items.getBits(1, &none), 0U);
}

TEST_F(PackerTest, GetBitGivesOneValueAtATime) {
  RecordBuffer record = recordOfWords({0x0015, 0x0002, 0x4000, 0x03FC, 0xFFFF, 0xFFFF}, 3);
  LogComprResourceUnpackerType items(record.rec());
  EXPECT_EQ(items.getBit(), 5U);
  EXPECT_EQ(items.getBit(), 16389U);
  EXPECT_EQ(items.getBit(), BM_HIGHEST_BIT);
  EXPECT_EQ(items.cursor, items.end);
  EXPECT_EQ(items.ascending, 1);
}

TEST_F(PackerTest, GetBitsStopsAtTheNumberAskedFor) {
  RecordBuffer record = recordOfWords({5, 5, 5}, 3);
  LogComprResourceUnpackerType items(record.rec());
  unsigned long values[2];
  EXPECT_EQ(items.getBits(0, values), 0U);
  EXPECT_EQ(items.getBits(2, values), 2U);
  EXPECT_EQ(values[1], 2U);
  EXPECT_EQ(items.getBits(2, values), 1U);
  EXPECT_EQ(values[0], 3U);
}

TEST_F(PackerTest, OnlyAnAbsoluteItemClearsAscending) {
  RecordBuffer repeated = recordOfWords({0x0191, 0x0001}, 2);
  LogComprResourceUnpackerType items(repeated.rec());
  EXPECT_EQ(unpacked(items), (Values{100, 100}));
  EXPECT_EQ(items.ascending, 1);

  RecordBuffer lower = recordOfWords({0x0191, 0, 0, 99}, 2);
  items = LogComprResourceUnpackerType(lower.rec());
  EXPECT_EQ(unpacked(items), (Values{100, 99}));
  EXPECT_EQ(items.ascending, 0);

  RecordBuffer equal = recordOfWords({0x0191, 0, 0, 100}, 2);
  items = LogComprResourceUnpackerType(equal.rec());
  EXPECT_EQ(unpacked(items), (Values{100, 100}));
  EXPECT_EQ(items.ascending, 0);
}

TEST_F(PackerTest, AnIllegalTagIsReportedAndCountsAsZero) {
  RecordBuffer record = recordOfWords({0x0191, 0x0007, 0x0005}, 3);
  LogComprResourceUnpackerType items(record.rec());
  EXPECT_EQ(unpacked(items), (Values{100, 0, 1}));
  host.expectReports({"guarantee logdisk:838"});
}

TEST_F(PackerTest, AnItemCutOffByTheEndIsReportedAndEndsTheRecord) {
  for (const Words& rest : {Words{0x0002}, Words{0x0000}, Words{0x0000, 0x0001}}) {
    Words words{0x0191};
    words.insert(words.end(), rest.begin(), rest.end());
    RecordBuffer record = recordOfWords(words, 2);
    LogComprResourceUnpackerType items(record.rec());
    EXPECT_EQ(unpacked(items), Values{100});
    EXPECT_EQ(items.cursor, items.end);
    EXPECT_EQ(host.takeReports().size(), 1U);
  }
}

TEST_F(PackerTest, ARecordOfTheDenseFormHasNoItems) {
  RecordBuffer record = recordOfImage(0, {1, 2}, 2);
  LogComprResourceUnpackerType items(record.rec());
  EXPECT_EQ(unpacked(items), Values{});
}

TEST_F(PackerTest, RandomValuesSurviveInRecordsOfEveryRoom) {
  Random random(testSeed());
  for (unsigned room = 3; room < 80; ++room) {
    Values values;
    for (int i = 0; i < 40; ++i) values.push_back(random.next() >> (24 + random.below(40)));
    RecordBuffer record(40 + 2 * room);
    LogComprResourcePackerType packer = record.packer();
    const unsigned taken = packer.addBits(values.data(), 40);
    ASSERT_GT(taken, 0U);
    values.resize(taken);
    LogComprResourceUnpackerType items(record.rec());
    ASSERT_EQ(unpacked(items), values) << "room " << room;
    ASSERT_EQ(record.numBits(), static_cast<int>(taken));
  }
}

}  // namespace
