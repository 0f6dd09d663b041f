#include "packfile.h"

#include <xxhash.h>

#include <array>
#include <bit>
#include <cstring>
#include <vector>

#include "exitcode.h"
#include "filedescriptor.h"
#include "readable.h"

namespace bmtree::tools {
namespace {

constexpr std::array<unsigned char, 8> magic{0x89, 'b', 'm', 't', 'p', 0x0d, 0x0a, 0x1a};
constexpr uint32_t version = 1;
constexpr uint32_t nativeOrder = std::endian::native == std::endian::little ? 1 : 2;
constexpr size_t headBytes = 16;
constexpr size_t frameHeadBytes = 16;
constexpr size_t endBytes = 16;
constexpr size_t recordBytesAtMost = 65528;

void storeLittle(std::byte* target, uint64_t value, size_t bytes) {
  for (size_t i = 0; i < bytes; ++i) target[i] = static_cast<std::byte>(value >> (8 * i));
}

uint64_t loadLittle(const std::byte* source, size_t bytes) {
  uint64_t value = 0;
  for (size_t i = bytes; i-- > 0;) value = value << 8 | std::to_integer<uint64_t>(source[i]);
  return value;
}

uint64_t checksum(std::span<const std::byte> bytes, uint64_t index) {
  return XXH3_64bits_withSeed(bytes.data(), bytes.size(), index);
}

std::array<std::byte, headBytes> makeHead() {
  std::array<std::byte, headBytes> head;
  std::memcpy(head.data(), magic.data(), magic.size());
  storeLittle(&head[8], version, 4);
  storeLittle(&head[12], nativeOrder, 4);
  return head;
}

std::array<std::byte, frameHeadBytes> makeFrameHead(size_t recordBytes, uint64_t index, uint64_t sum) {
  std::array<std::byte, frameHeadBytes> head;
  storeLittle(&head[0], recordBytes, 4);
  storeLittle(&head[4], index, 4);
  storeLittle(&head[8], sum, 8);
  return head;
}

// A pack file that is being read.
class PackReader {
 public:
  explicit PackReader(const std::string& path)
      : path_(path), file_(FileDescriptor::forReading(path)), record_(recordBytesAtMost / sizeof(uint64_t)) {}

  void readHead() {
    std::array<std::byte, headBytes> head;
    const size_t got = file_.readFully(head, path_);
    if (got < headBytes || std::memcmp(head.data(), magic.data(), magic.size()) != 0) refuse("is not a pack file");
    bytes_ += got;
    const uint64_t found = loadLittle(&head[8], 4);
    if (found != version) refuse("has version " + std::to_string(found) + ", and only version 1 is known here");
    if (loadLittle(&head[12], 4) != nativeOrder) refuse("comes from a machine of another byte order");
  }

  // The next record; nothing at the end, which is then checked.
  std::span<const std::byte> readRecord() {
    std::array<std::byte, frameHeadBytes> head;
    read(head);
    const uint64_t recordBytes = loadLittle(&head[0], 4);
    if (recordBytes > recordBytesAtMost) refuseFrame("has an impossible size of " + counted(recordBytes, "byte"));
    if (loadLittle(&head[4], 4) != (frames_ & 0xffffffff)) refuseFrame("is not the one that belongs here");
    const auto body = std::as_writable_bytes(std::span(record_)).first(recordBytes == 0 ? endBytes : recordBytes);
    read(body);
    if (checksum(body, frames_) != loadLittle(&head[8], 8)) refuseFrame("is damaged: its checksum is wrong");
    if (recordBytes != 0) return body;
    checkEnd(body);
    return {};
  }

  void countFrame() { ++frames_; }

  PackContents contents() const { return {frames_, numbers_, bytes_}; }

 private:
  void read(std::span<std::byte> target) {
    const size_t got = file_.readFully(target, path_);
    bytes_ += got;
    if (got < target.size()) refuse("ends too early, at byte " + grouped(bytes_));
  }

  void checkEnd(std::span<const std::byte> end) {
    if (loadLittle(&end[0], 8) != frames_) refuse("does not hold the number of records that it says");
    numbers_ = loadLittle(&end[8], 8);
    std::array<std::byte, 1> more;
    if (file_.readFully(more, path_) != 0) refuse("goes on behind its end, at byte " + grouped(bytes_));
  }

  [[noreturn]] void refuse(const std::string& what) const {
    throw ProgramError(exitBadInput, (path_ == "-" ? "standard input" : path_) + " " + what);
  }
  [[noreturn]] void refuseFrame(const std::string& what) const {
    refuse("cannot be used: record " + grouped(frames_) + " " + what);
  }

  const std::string path_;
  const FileDescriptor file_;
  std::vector<uint64_t> record_;
  uint64_t frames_ = 0;
  uint64_t numbers_ = 0;
  uint64_t bytes_ = 0;
};

}  // namespace

PackWriter::PackWriter(Output& output) : output_(output) { write(makeHead()); }

void PackWriter::add(std::span<const std::byte> record) {
  write(makeFrameHead(record.size(), frames_, checksum(record, frames_)));
  write(record);
  ++frames_;
}

void PackWriter::finish(uint64_t numbers) {
  std::array<std::byte, endBytes> end;
  storeLittle(&end[0], frames_, 8);
  storeLittle(&end[8], numbers, 8);
  write(makeFrameHead(0, frames_, checksum(end, frames_)));
  write(end);
}

void PackWriter::write(std::span<const std::byte> bytes) {
  output_.write(bytes);
  bytes_ += bytes.size();
}

PackContents readPackFile(const std::string& path,
                          const std::function<void(uint64_t, std::span<const std::byte>)>& visit) {
  PackReader reader(path);
  reader.readHead();
  for (std::span<const std::byte> record; !(record = reader.readRecord()).empty(); reader.countFrame()) {
    visit(reader.contents().frames, record);
  }
  return reader.contents();
}

}  // namespace bmtree::tools
