// The delta form of a compressed record: packing values into 16-bit items, and unpacking them.
#include <algorithm>

#include "compress/items.h"
#include "utl.h"

namespace {

constexpr unsigned long MOST_BODY_BYTES = 65488;  // recSize has 16 bits: 40 + this rounds to no more than 65,535

}  // namespace

LogComprResourcePackerType::LogComprResourcePackerType(LogComprResourceIdRecHdrType* record, unsigned long bytes)
    : cursor(record->body()), recHdr(record) {
  const unsigned long room = bytes < LOG_COMPR_HEAD_BYTES ? 0 : bytes - LOG_COMPR_HEAD_BYTES;
  limit = cursor + std::min(room, MOST_BODY_BYTES) / sizeof *cursor;
  record->numBits = 0;
  record->bodyWords = 0;
  record->recSize = LOG_COMPR_HEAD_BYTES;
}

unsigned LogComprResourcePackerType::addBits(const unsigned long* bits, unsigned n) {
  unsigned taken = 0;
  uint16_t* to = cursor;
  uint64_t last = lastBit;
  while (taken < n && hasRoomForItem(to, limit)) {
    to = packItem(to, bits[taken], last);
    last = bits[taken];
    ++taken;
  }
  cursor = to;
  lastBit = last;
  updateRecordHead(this, taken);
  return taken;
}

void updateRecordHead(LogComprResourcePackerType* packer, unsigned taken) {
  LogComprResourceIdRecHdrType* head = packer->recHdr;
  const long words = packer->cursor - head->body();
  head->bodyWords = static_cast<int16_t>(words);
  head->numBits += static_cast<int32_t>(taken);
  head->recSize = static_cast<uint16_t>(recordBytes(words));
}

LogComprResourceUnpackerType::LogComprResourceUnpackerType(const LogComprResourceIdRecHdrType* record)
    : cursor(record->body()), end(cursor + std::max<int>(record->bodyWords, 0)) {}

bool unpackItem(LogComprResourceUnpackerType* from, uint64_t* value) {
  const uint16_t* words = from->cursor;
  const unsigned tag = words[0] & ITEM_TAG_MASK;
  if (tag == ITEM_ILLEGAL) {
    UTL_GUARANTEE(false, "logdisk", ILLEGAL_TAG_LINE);
    *value = 0;
    from->cursor += 1;
  } else if (from->end - words < wordsOfItem(tag)) {
    UTL_GUARANTEE(false);  // cut off by the end of the record
    from->cursor = from->end;
    return false;
  } else {
    *value = itemValue(words, from->lastBit);
    if (tag == ITEM_ABSOLUTE && *value <= from->lastBit) from->ascending = 0;
    from->cursor += wordsOfItem(tag);
  }
  from->lastBit = *value;
  return true;
}

unsigned LogComprResourceUnpackerType::getBits(unsigned n, unsigned long* out) {
  unsigned delivered = 0;
  while (delivered < n && cursor < end && unpackItem(this, out + delivered)) ++delivered;
  return delivered;
}

unsigned long LogComprResourceUnpackerType::getBit() {
  uint64_t value;
  return unpackItem(this, &value) ? value : lastBit;
}
