#include "support/pagearena.h"

#include <sys/mman.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t blockBytes = 16384;
constexpr size_t blocksPerChunk = 4096;
constexpr size_t quarantineBlocks = 8192;
constexpr int garbageByte = 0xA5;

void protect(unsigned char* block, int protection) {
  if (mprotect(block, blockBytes, protection) == 0) return;
  std::perror("page arena: mprotect");
  std::abort();
}

}  // namespace

PageArena::~PageArena() {
  for (unsigned char* chunk : chunks_) munmap(chunk, blockBytes * blocksPerChunk);
}

void PageArena::addChunk() {
  void* memory =
      mmap(nullptr, blockBytes * blocksPerChunk, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (memory == MAP_FAILED) {
    std::perror("page arena: mmap");
    std::abort();
  }
  auto* chunk = static_cast<unsigned char*>(memory);
  chunks_.push_back(chunk);
  for (size_t i = blocksPerChunk; i > 0; --i) fresh_.push_back(chunk + (i - 1) * blockBytes);
}

unsigned char* PageArena::take() {
  unsigned char* block = nullptr;
  if (retired_.size() > quarantineBlocks) {
    block = retired_.front();
    retired_.pop_front();
  } else {
    if (fresh_.empty()) addChunk();
    block = fresh_.back();
    fresh_.pop_back();
  }
  protect(block, PROT_READ | PROT_WRITE);
  std::memset(block, garbageByte, blockBytes);
  return block;
}

void PageArena::seal(unsigned char* block) { protect(block, PROT_NONE); }

void PageArena::unseal(unsigned char* block) { protect(block, PROT_READ | PROT_WRITE); }

void PageArena::retire(unsigned char* block) {
  seal(block);
  retired_.push_back(block);
}
