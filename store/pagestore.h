// The page store: immutable pages by id, and one catalogue that is swapped atomically.
//
// Everything above this interface sees pages and the catalogue through it alone, and assumes no file, no single
// process and no cheap random reads: an implementation may fetch pages over a network and keep them for as long
// as the rules below say. A page that a catalogue names is never changed, and its id is never used again, not even
// after the page was given up. Pages become visible when a catalogue that names them is swapped in, so pages may be
// put long before, in any number of steps. Those of a writer that ended without a swap are garbage: the next writer
// drops them before it gives out the same ids for pages of its own, so that an id may have had several contents that
// nobody could see.
//
// Operations throw StoreError, except view() and what ends things, which are called where nothing may throw.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "store_error.h"

namespace bmtree {

// Bytes of every page.
constexpr size_t pageBytes = 16384;

// First id of a page.
constexpr uint64_t firstPageId = 4;

// A page to be put: its id and its 16,384 bytes, owned by the caller.
struct PageImage {
  uint64_t id;
  const std::byte* bytes;
};

// The catalogue as the page store keeps it: bytes without a meaning here, under a version that grows by one or
// more with every swap.
struct CatalogueImage {
  uint64_t version;
  std::vector<std::byte> bytes;
};

// The store as it was when the snapshot was taken. Used by one thread at a time; takes no lock that a writer
// could wait for.
class PageSnapshot {
 public:
  virtual ~PageSnapshot() = default;

  // The catalogue of this snapshot.
  virtual const CatalogueImage& catalogue() const = 0;

  // The 16,384 bytes of page `id`, 8-byte aligned, or null with the reason in `failure`: `damaged` if the page is
  // not there or has another size, `io` if it could not be read. Valid until the next call of view(), or while
  // the page is held. The content is not checked here.
  virtual const std::byte* view(uint64_t id, StoreErrorCode& failure) noexcept = 0;

  // Between hold() and as many calls of release() the page, viewed just before, stays at its address.
  virtual void hold(uint64_t id) noexcept = 0;
  virtual void release(uint64_t id) noexcept = 0;

  // Number of stored pages, garbage included.
  virtual uint64_t pageCount() const = 0;

  // Calls `visit` with ids of stored pages in ascending order, in batches, garbage included.
  virtual void listPages(const std::function<void(std::span<const uint64_t>)>& visit) = 0;
};

// The right to write, held by at most one at a time. Ends with its destruction.
class PageWriter {
 public:
  virtual ~PageWriter() = default;

  // Drops pages of `firstId` and above: what writers left behind that ended without a swap.
  virtual void dropPagesFrom(uint64_t firstId) = 0;

  // Takes a batch of new pages; the bytes may change once the call returns. A page put twice is replaced.
  virtual void put(std::span<const PageImage> pages) = 0;

  // Ends what put() may have left under way, so that nothing is held between two attempts at a commit. Which of the
  // pages that were put remain is open; all are put again before the next swap.
  virtual void cancelPuts() noexcept = 0;

  // Makes everything put so far durable, replaces the catalogue of version `expected` by `next` and deletes the
  // pages `obsolete` from the view of later snapshots, all of it or nothing. Throws `conflict` if the catalogue
  // has another version. After a failure the pages may be put and the swap tried again.
  virtual void swapCatalogue(uint64_t expected, const CatalogueImage& next, std::span<const uint64_t> obsolete) = 0;
};

// Figures of a page store; 0 where an implementation cannot tell.
struct PageStoreFigures {
  uint64_t bytesUsed;  // bytes that pages and catalogue occupy, the store's own overhead included
  uint64_t bytesFree;  // bytes inside that range that are free for reuse
};

// Safe to call from several threads. Outlives its snapshots and its writer.
class PageStore {
 public:
  virtual ~PageStore() = default;

  // The store as of now. The catalogue is that of the last swap.
  virtual std::unique_ptr<PageSnapshot> snapshot() = 0;

  // Becomes the writer; throws `writerActive` at once if there is one, `readOnly` if writing is not possible.
  virtual std::unique_ptr<PageWriter> beginWrite() = 0;

  virtual PageStoreFigures figures() = 0;
};

}  // namespace bmtree
