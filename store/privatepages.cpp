#include "privatepages.h"

#include <algorithm>
#include <cstring>

namespace bmtree {

PrivatePages::PrivatePages(uint64_t firstId, uint64_t memoryLimit, SpillFile spill)
    : firstId_(firstId),
      frameLimit_(std::max(memoryLimit, leastMemory) / sizeof(PageFrame)),
      spill_(std::move(spill)),
      nextId_(firstId) {
  static_assert(leastMemory / sizeof(PageFrame) > 2 * protectedLocates);
}

PageFrame* PrivatePages::create() {
  if (nextId_ > BM_HIGHEST_BIT) throw StoreError(StoreErrorCode::full, "the page ids of the store are used up");
  PageFrame* frame = takeFrame();
  std::memset(frame->bytes, 0, pageBytes);
  makeResident(nextId_, frame);
  frame->id = nextId_++;
  frame->changed = true;
  touch(*frame);
  return frame;
}

PageFrame* PrivatePages::locateByMap(uint64_t id) {
  const auto found = resident_.find(id);
  if (found != resident_.end()) return found->second;
  if (!isSpilled(id)) return nullptr;
  PageFrame* frame = takeFrame();
  try {
    spill_.read(slotOf(id), frame->bytes);
  } catch (...) {
    free_.push_back(frame);
    throw;
  }
  makeResident(id, frame);
  frame->id = id;
  frame->changed = false;
  return frame;
}

void PrivatePages::makeResident(uint64_t id, PageFrame* frame) {
  try {
    resident_.emplace(id, frame);
  } catch (...) {
    free_.push_back(frame);
    throw;
  }
}

bool PrivatePages::dispose(uint64_t id) noexcept {
  const auto found = resident_.find(id);
  const bool wasSpilled = isSpilled(id);
  if (found == resident_.end() && !wasSpilled) return false;
  if (found != resident_.end()) release(*found->second);
  if (wasSpilled) {
    setSpilled(id, false);
    spill_.discard(slotOf(id));
  }
  return true;
}

std::byte* PrivatePages::peek(uint64_t id, std::byte* scratch) {
  const auto found = resident_.find(id);
  if (found != resident_.end()) return found->second->bytes;
  if (!isSpilled(id)) throw StoreError(StoreErrorCode::damaged, "a changed page is lost", id);
  spill_.read(slotOf(id), scratch);
  return scratch;
}

bool PrivatePages::isSpilled(uint64_t id) const {
  if (id < firstId_) return false;
  const uint64_t slot = slotOf(id);
  return slot / 64 < spilled_.size() && (spilled_[slot / 64] >> slot % 64 & 1) != 0;
}

void PrivatePages::setSpilled(uint64_t id, bool spilled) {
  const uint64_t slot = slotOf(id);
  if (slot / 64 >= spilled_.size()) spilled_.resize(std::max(slot / 64 + 1, spilled_.size() * 2));
  const uint64_t mask = uint64_t{1} << slot % 64;
  spilled_[slot / 64] = spilled ? spilled_[slot / 64] | mask : spilled_[slot / 64] & ~mask;
}

// A frame that holds nothing: a free one, a new one below the limit, or one whose page was spilled for it.
PageFrame* PrivatePages::takeFrame() {
  if (free_.empty()) {
    PageFrame* victim = frames_.size() < frameLimit_ ? nullptr : evictable();
    if (victim == nullptr) return newFrame();
    evict(*victim);
  }
  PageFrame* frame = free_.back();
  free_.pop_back();
  return frame;
}

PageFrame* PrivatePages::newFrame() {
  free_.reserve(frames_.size() + 1);  // giving a frame back must not fail
  frames_.push_back(std::make_unique<PageFrame>());
  return frames_.back().get();
}

// The next page that may be spilled and was not used in the last round; null if all are pinned or protected.
PageFrame* PrivatePages::evictable() {
  for (size_t step = 0; step < 2 * frames_.size(); ++step) {
    hand_ = hand_ + 1 < frames_.size() ? hand_ + 1 : 0;
    PageFrame& frame = *frames_[hand_];
    if (frame.pins > 0 || locates_ - frame.lastUse < protectedLocates) continue;
    if (!frame.referenced) return &frame;
    frame.referenced = false;
  }
  return nullptr;
}

void PrivatePages::evict(PageFrame& frame) {
  if (frame.changed) {
    spill_.write(slotOf(frame.id), frame.bytes);
    setSpilled(frame.id, true);
  }
  release(frame);
}

void PrivatePages::release(PageFrame& frame) noexcept {
  resident_.erase(frame.id);
  frame.id = 0;
  frame.pins = 0;
  free_.push_back(&frame);
}

}  // namespace bmtree
