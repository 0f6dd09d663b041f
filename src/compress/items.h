// One item of a compressed record, and the head that tells how many there are.
#pragma once

#include "logdisk.h"

// The tag of an item: the low bits of its first word.
constexpr unsigned ITEM_TAG_MASK = 3;
constexpr unsigned ITEM_ABSOLUTE = 0;
constexpr unsigned ITEM_SHORT_DELTA = 1;
constexpr unsigned ITEM_LONG_DELTA = 2;
constexpr unsigned ITEM_ILLEGAL = 3;

constexpr int ITEM_MOST_WORDS = 3;
constexpr int ILLEGAL_TAG_LINE = 838;

// Words of an item with a legal tag.
constexpr int wordsOfItem(unsigned tag) { return tag == ITEM_ABSOLUTE ? 3 : static_cast<int>(tag); }

// Whether any item fits between `cursor` and `limit`.
inline bool hasRoomForItem(const uint16_t* cursor, const uint16_t* limit) {
  return limit - cursor >= ITEM_MOST_WORDS;
}

// Writes `value` as the item behind one of the value `last`. Returns the word behind it.
inline uint16_t* packItem(uint16_t* to, uint64_t value, uint64_t last) {
  const uint64_t delta = value - last;  // a step downward has high bits, so it is absolute
  if (delta >> 14 == 0) {
    to[0] = static_cast<uint16_t>(delta << 2 | ITEM_SHORT_DELTA);
    return to + 1;
  }
  if (delta >> 30 == 0) {
    to[0] = static_cast<uint16_t>(delta >> 16 << 2 | ITEM_LONG_DELTA);
    to[1] = static_cast<uint16_t>(delta);
    return to + 2;
  }
  to[0] = static_cast<uint16_t>(value >> 32 << 2 | ITEM_ABSOLUTE);
  to[1] = static_cast<uint16_t>(value >> 16);
  to[2] = static_cast<uint16_t>(value);
  return to + 3;
}

// The value of the whole item at `words`, behind one of the value `last`. The tag is legal.
inline uint64_t itemValue(const uint16_t* words, uint64_t last) {
  const uint64_t high = words[0] >> 2;
  switch (words[0] & ITEM_TAG_MASK) {
    case ITEM_SHORT_DELTA: return last + high;
    case ITEM_LONG_DELTA: return last + (high << 16) + words[1];
    default: return (high << 32) + (uint64_t{words[1]} << 16) + words[2];
  }
}

// Unpacks the item at the cursor, which is before the end. Returns false, after a report and with nothing left, if
// the end of the body cuts it off.
bool unpackItem(LogComprResourceUnpackerType* from, uint64_t* value);

// Bytes of a record whose body has `words` words. The largest word counts give more than recSize can say.
constexpr unsigned long recordBytes(long words) {
  return (static_cast<unsigned long>(words) * 2 + 7) / 8 * 8 + LOG_COMPR_HEAD_BYTES;
}

// Brings the head up to date: the body ends at the cursor and holds `taken` more bits.
void updateRecordHead(LogComprResourcePackerType* packer, unsigned taken);
