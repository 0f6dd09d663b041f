// Memory for the pages of the test host's page cache: blocks of one page that can be made unreadable, so that a
// read of a page that has left the cache stops the test where it happens.
#pragma once

#include <cstddef>
#include <deque>
#include <vector>

class PageArena {
 public:
  PageArena() = default;
  ~PageArena();
  PageArena(const PageArena&) = delete;
  PageArena& operator=(const PageArena&) = delete;

  // A readable and writable block full of garbage.
  unsigned char* take();

  // Makes a block unreadable, its bytes kept, and readable again.
  void seal(unsigned char* block);
  void unseal(unsigned char* block);

  // Makes a block unreadable for good; its address comes back only after thousands of other blocks have been retired.
  void retire(unsigned char* block);

 private:
  void addChunk();

  std::vector<unsigned char*> chunks_;
  std::vector<unsigned char*> fresh_;   // never used, sealed
  std::deque<unsigned char*> retired_;  // oldest first, sealed
};
