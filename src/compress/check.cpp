// What is wrong with a compressed record, told without a tree.
#include <bit>
#include <cstring>

#include "bitmap.h"
#include "compress/denseimage.h"
#include "compress/items.h"

namespace {

int found(BmCheckResultSType* result, BmCheckFaultEType fault, uint64_t byteOffset, uint64_t itemIndex,
          const char* sentence) {
  *result = {fault, 0, byteOffset, itemIndex, sentence};
  return fault == BM_CHECK_SOUND;
}

int foundSound(BmCheckResultSType* result, uint64_t bytes, uint64_t items) {
  return found(result, BM_CHECK_SOUND, bytes, items, "sound");
}

constexpr uint64_t REC_SIZE_OFFSET = offsetof(LogComprResourceIdRecHdrType, recSize);
constexpr uint64_t NUM_BITS_OFFSET = offsetof(LogComprResourceIdRecHdrType, numBits);
constexpr uint64_t BODY_WORDS_OFFSET = offsetof(LogComprResourceIdRecHdrType, bodyWords);

// The body of the dense form, which is there in full.
int checkDense(const LogComprResourceIdRecHdrType* rec, BmCheckResultSType* result) {
  const DenseImage image(rec);
  if (!image.beginsAtSpan()) {
    return found(result, BM_CHECK_ALIGNMENT, LOG_COMPR_HEAD_BYTES, 0,
                 "the first bit of the dense image is not a multiple of 130,752 below 2^40");
  }
  const int outOfRange = image.firstWordOutOfRange();
  if (outOfRange < BM_BIT_LIST_CAPACITY) {
    const auto index = static_cast<uint64_t>(outOfRange);
    return found(result, BM_CHECK_RANGE, LOG_COMPR_HEAD_BYTES + 8 + index * 8, index,
                 "a word of the dense image holds a bit of 2^40 or above");
  }
  int bits = 0;
  for (int i = 0; i < BM_BIT_LIST_CAPACITY; ++i) bits += std::popcount(image.word(i));
  if (bits != rec->numBits) {
    return found(result, BM_CHECK_COUNT, NUM_BITS_OFFSET, static_cast<uint64_t>(bits),
                 "the words of the dense image do not have as many bits as the head says");
  }
  return foundSound(result, LOG_COMPR_DENSE_REC_SIZE, static_cast<uint64_t>(bits));
}

// The items of the delta form, which are there in full.
int checkItems(const LogComprResourceIdRecHdrType* rec, BmCheckResultSType* result) {
  const uint16_t* body = rec->body();
  const uint16_t* end = body + rec->bodyWords;
  uint64_t last = 0;
  uint64_t index = 0;
  for (const uint16_t* at = body; at < end; ++index) {
    const uint64_t offset = LOG_COMPR_HEAD_BYTES + static_cast<uint64_t>(at - body) * sizeof *at;
    const unsigned tag = *at & ITEM_TAG_MASK;
    if (tag == ITEM_ILLEGAL) return found(result, BM_CHECK_TAG, offset, index, "an item has an illegal tag");
    if (end - at < wordsOfItem(tag)) {
      return found(result, BM_CHECK_CUT_OFF, offset, index, "an item is cut off by the end of the record");
    }
    last = itemValue(at, last);
    if (last >= BM_END_BIT) return found(result, BM_CHECK_RANGE, offset, index, "an item is 2^40 or above");
    at += wordsOfItem(tag);
  }
  if (static_cast<uint64_t>(rec->numBits) != index) {
    return found(result, BM_CHECK_COUNT, NUM_BITS_OFFSET, index, "there are not as many items as the head says");
  }
  return foundSound(result, rec->recSize, index);
}

}  // namespace

int BmCheckLogRec(const void* record, unsigned long bytes, BmCheckResultSType* result) {
  if (bytes < LOG_COMPR_HEAD_BYTES) {
    return found(result, BM_CHECK_SIZE, bytes, 0, "the record ends before its head does");
  }
  if (reinterpret_cast<uintptr_t>(record) % alignof(LogComprResourceIdRecHdrType) != 0) {
    return found(result, BM_CHECK_ALIGNMENT, 0, 0, "the record does not stand at a multiple of 4 bytes");
  }
  const auto* rec = static_cast<const LogComprResourceIdRecHdrType*>(record);
  const bool dense = rec->bodyWords == LOG_COMPR_DENSE_BODY;
  if (rec->bodyWords < 0 && !dense) {
    return found(result, BM_CHECK_HEADER, BODY_WORDS_OFFSET, 0, "the word count stands for neither form of body");
  }
  const unsigned long size = dense ? LOG_COMPR_DENSE_REC_SIZE : recordBytes(rec->bodyWords);
  if (rec->recSize != size) {
    return found(result, BM_CHECK_SIZE, REC_SIZE_OFFSET, 0, "the record's size does not fit its body");
  }
  const unsigned long end = dense ? size : LOG_COMPR_HEAD_BYTES + static_cast<unsigned long>(rec->bodyWords) * 2;
  if (bytes < end) return found(result, BM_CHECK_SIZE, bytes, 0, "the record ends before its body does");
  return dense ? checkDense(rec, result) : checkItems(rec, result);
}
