// The compressed resource record: a sorted list of bits in a log record, as 16-bit tagged delta items or as the
// raw image of one dense leaf, with the objects that pack and unpack the delta form.
//
// An item is one to three 16-bit words in native byte order; the low two bits of its first word w0 are its tag.
// With `prev` the value of the item before it, 0 at the start of the record:
//   tag 1   prev + (w0 >> 2)                            a delta below 2^14
//   tag 2   prev + ((w0 >> 2) << 16) + w1               a delta below 2^30
//   tag 0   ((w0 >> 2) << 32) + (w1 << 16) + w2         an absolute value: any other step, downward ones too
#pragma once

#include "reposdisk.h"

constexpr int16_t LOG_COMPR_DENSE_BODY = -2044;  // bodyWords of a record that holds a dense leaf
constexpr int LOG_COMPR_HEAD_BYTES = 40;         // bytes of a record before its body
constexpr int LOG_COMPR_DENSE_REC_SIZE = 16392;  // recSize of a dense record: head, first bit, words

// Head of a record. The log owns the record and the reserved bytes.
struct LogComprResourceIdRecHdrType {
  uint8_t reserved0[12];
  uint16_t recSize;  // bytes of the record: 40 + the body's bytes rounded up to a multiple of 8
  uint8_t reserved14[2];
  int32_t numBits;  // bits in the record; 0: empty
  uint8_t reserved20[2];
  int16_t bodyWords;  // 16-bit words of the body, or LOG_COMPR_DENSE_BODY
  uint8_t reserved24[16];

  uint16_t* body() { return reinterpret_cast<uint16_t*>(reinterpret_cast<char*>(this) + LOG_COMPR_HEAD_BYTES); }
  const uint16_t* body() const {
    return reinterpret_cast<const uint16_t*>(reinterpret_cast<const char*>(this) + LOG_COMPR_HEAD_BYTES);
  }
};
static_assert(sizeof(LogComprResourceIdRecHdrType) == LOG_COMPR_HEAD_BYTES);
static_assert(offsetof(LogComprResourceIdRecHdrType, recSize) == 12);
static_assert(offsetof(LogComprResourceIdRecHdrType, numBits) == 16);
static_assert(offsetof(LogComprResourceIdRecHdrType, bodyWords) == 22);

// Packs bits into the record at `recHdr`, whose body has room up to `limit`. Owns nothing.
struct LogComprResourcePackerType {
  uint16_t* cursor = nullptr;  // next word of the body
  uint16_t* limit = nullptr;   // end of the room for the body
  int32_t denseBody = 0;       // set to 1 when the record took the dense form
  LogComprResourceIdRecHdrType* recHdr = nullptr;
  uint64_t lastBit = 0;  // value before the next item

  LogComprResourcePackerType() = default;

  // Starts a fresh record of `bytes` bytes at `record`, head included: numBits and bodyWords 0, recSize 40. The
  // dense form needs 40 + 16,352 bytes of room and is not chosen in a smaller record.
  LogComprResourcePackerType(LogComprResourceIdRecHdrType* record, unsigned long bytes);

  // Packs up to `n` values below 2^40 and brings the head up to date. Returns how many were taken: fewer than
  // `n` when fewer than three words of room are left.
  unsigned addBits(const unsigned long* bits, unsigned n);
};

// Unpacks a record of the delta form. Owns nothing.
struct LogComprResourceUnpackerType {
  uint64_t lastBit = 0;              // value before the next item
  const uint16_t* cursor = nullptr;  // next word of the body
  const uint16_t* end = nullptr;     // one past the last word of the body
  uint32_t reserved = 0;
  int32_t ascending = 1;  // cleared when an absolute item does not lie above its predecessor

  LogComprResourceUnpackerType() = default;

  // Reads the body of `record` from its start.
  explicit LogComprResourceUnpackerType(const LogComprResourceIdRecHdrType* record);

  // Unpacks up to `n` values into `out`. Returns how many: fewer than `n` only at the end of the body.
  unsigned getBits(unsigned n, unsigned long* out);

  // Unpacks one value; the caller has seen that `cursor` is before `end`. An illegal tag is reported, counts as
  // the value 0 and takes one word; an item cut off by the end of the body is reported and ends the body.
  unsigned long getBit();
};
