// Pack files: the compressed records of one tree, each in a frame with a checksum.
//
//   head     8 bytes   89 'b' 'm' 't' 'p' 0d 0a 1a
//            u32       version, 1
//            u32       byte order of the records: 1 little, 2 big
//   frame    u32       bytes of the record, 1 to 65,528
//            u32       index of the frame, modulo 2^32
//            u64       XXH3 of the record, seeded with the index
//            ...       the record
//   end      u32       0
//            u32       number of frames, modulo 2^32
//            u64       XXH3 of the next 16 bytes, seeded with the number of frames
//            u64       number of frames
//            u64       how many numbers the records hold together
//
// All fields of the file itself are little-endian. Nothing follows the end. The seeds make frames that were left out,
// repeated or put in another order show.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "output.h"

namespace bmtree::tools {

class PackWriter {
 public:
  // Writes the head.
  explicit PackWriter(Output& output);

  void add(std::span<const std::byte> record);

  // Writes the end; `numbers` is how many the records hold together.
  void finish(uint64_t numbers);

  uint64_t frames() const { return frames_; }
  uint64_t bytes() const { return bytes_; }

 private:
  void write(std::span<const std::byte> bytes);

  Output& output_;
  uint64_t frames_ = 0;
  uint64_t bytes_ = 0;
};

struct PackContents {
  uint64_t frames = 0;
  uint64_t numbers = 0;  // as the end of the file says
  uint64_t bytes = 0;
};

// Reads a pack file, "-" being standard input, and hands each record, 8-byte aligned and valid during the call, to
// `visit` with its frame's index, once its checksum was found right. Throws a ProgramError for whatever is wrong with
// the file, which may be after many records.
PackContents readPackFile(const std::string& path,
                          const std::function<void(uint64_t index, std::span<const std::byte> record)>& visit);

}  // namespace bmtree::tools
