// Trees: numbers in and out, and questions.
#include <algorithm>

#include "leafwalk.h"
#include "treeaccess.h"

namespace bmtree {
namespace {

// Spans that are set or cleared in one go: the module builds such a run in private memory first.
constexpr uint64_t rangeStep = uint64_t{256} * BM_LEAF_BITS;

// Where `chunkNumbers` numbers lie closer together than this they are cleared as a run, else one by one.
constexpr uint64_t denseWidth = uint64_t{16} * chunkNumbers;

// A run longer than this whose last bit begins a span leaves that bit clear.
constexpr uint64_t shortRun = uint64_t{2} * BM_LEAF_BITS;

// The key of the level-1 page behind the one that holds `number`; 0 if there is none. `root` has level 2.
uint64_t nextUpperKey(StoreContext& context, const RepTreeRootSType& root, uint64_t number) {
  const auto& keys = asInternalPage(context.locate(root.root, REP_BM_INTERNAL_PAGE))->keyArea;
  const uint64_t* first = keys.keys + keys.firstOffset;
  const uint64_t* above = std::upper_bound(first, first + keys.count, number);
  return above == first + keys.count ? 0 : keyBit(*above);
}

uint64_t setRun(StoreContext& context, RepTreeRootSType& root, uint64_t first, uint64_t last) {
  uint64_t added = BmSetBitRange_(&context, &root, first, last);
  if (last - first >= shortRun && last % BM_LEAF_BITS == 0 && BmSetBit(&context, &root, last) == 0) ++added;
  return added;
}

uint64_t clearRun(StoreContext& context, RepTreeRootSType& root, uint64_t first, uint64_t last) {
  ScratchTree run(context);
  setRun(context, *run.root(), first, last);
  return clearBits(context, run.root(), &root);
}

// Calls `step(first, last)` for the pieces of a range, cut at span boundaries, until a failure.
template <class Step>
uint64_t inPieces(StoreContext& context, uint64_t first, uint64_t last, const Step& step) {
  uint64_t total = 0;
  for (uint64_t from = first; from <= last && !context.failed();) {
    const uint64_t to = std::min(last, spanBase(from) + rangeStep - 1);
    total += step(from, to);
    from = to + 1;
  }
  return total;
}

bool isStrictlyAscending(std::span<const uint64_t> numbers) {
  return std::adjacent_find(numbers.begin(), numbers.end(), std::greater_equal<>()) == numbers.end();
}

// Hands `numbers` to `apply(first, end)` in strictly ascending arrays.
template <class Apply>
uint64_t applyAscending(StoreContext& context, std::span<const uint64_t> numbers, const Apply& apply) {
  if (isStrictlyAscending(numbers)) return apply(numbers.data(), numbers.data() + numbers.size());
  constexpr size_t sortedAtOnce = size_t{1} << 20;
  std::vector<unsigned long> buffer(std::min(numbers.size(), sortedAtOnce) + 2);
  uint64_t total = 0;
  while (!numbers.empty() && !context.failed()) {
    const auto part = numbers.first(std::min(numbers.size(), sortedAtOnce));
    numbers = numbers.subspan(part.size());
    buffer[0] = 0;
    std::copy(part.begin(), part.end(), buffer.begin() + 1);
    unsigned long* end = BmSortArrayRemoveDups_(buffer.data(), buffer.data() + part.size() + 1);
    total += apply(buffer.data() + 1, end);
  }
  return total;
}

void requireNumbers(std::span<const uint64_t> numbers) {
  const auto bad = std::find_if(numbers.begin(), numbers.end(), [](uint64_t number) { return number >= numberEnd; });
  if (bad != numbers.end()) requireNumber(*bad);
}

// Free numbers of a leaf and of the gap before it.
class FreeNumbers {
 public:
  FreeNumbers(uint64_t first, uint64_t last, std::span<uint64_t> out) : next_(first), last_(last), out_(out) {}

  bool done() const { return found_ == out_.size() || next_ > last_; }
  size_t found() const { return found_; }

  // Takes the numbers below `end` as free.
  void gap(uint64_t end) {
    while (next_ < end && !done()) out_[found_++] = next_++;
  }

  void leaf(const RepPageHdrSType& page, uint64_t first) {
    gap(first);
    if (page.pageKind == REP_BM_LEAF_PAGE) {
      dense(asDensePage(&page)->words, first);
    } else {
      forEachNumberOfLeaf(page, first, next_, [&](uint64_t number) {
        gap(number);
        if (!done()) next_ = number + 1;
        return !done();
      });
    }
  }

 private:
  void dense(const uint64_t* words, uint64_t first) {
    const uint64_t end = std::min(first + BM_LEAF_BITS, BM_END_BIT);
    while (next_ < end && !done()) {
      const auto found =
          UtlFindFirstBitClear(words, static_cast<unsigned>(next_ - first), static_cast<unsigned>(end - first));
      next_ = std::min(first + found, end);
      if (next_ < end && !done()) out_[found_++] = next_++;
    }
  }

  uint64_t next_;
  const uint64_t last_;
  const std::span<uint64_t> out_;
  size_t found_ = 0;
};

LeafInfo infoOf(const LeafWalk& walk) {
  const RepPageHdrSType& page = walk.page();
  return {page.pageKind == REP_BM_LEAF_PAGE ? LeafKind::dense : LeafKind::list, walk.pageId(), walk.first(),
          walk.end(), countOfLeaf(page)};
}

}  // namespace

void requireNumber(uint64_t number) {
  if (number < numberEnd) return;
  throw StoreError(StoreErrorCode::badArgument, std::to_string(number) + " is not below 2^40");
}

void requireRange(uint64_t first, uint64_t last) {
  requireNumber(last);
  if (first <= last) return;
  throw StoreError(StoreErrorCode::badArgument, "a range from " + std::to_string(first) + " to " +
                                                    std::to_string(last) + " ends before it begins");
}

size_t readFrom(StoreContext& context, const RepTreeRootSType& root, uint64_t from, BmPathSType* path,
                std::span<uint64_t> out) {
  const auto room = static_cast<long>(out.size());
  for (;;) {
    *path = BmPathSType{};
    const auto count = from == 0
                           ? BmFindSetBitsNonDestructive_(&context, room, &root, path, out.data())
                           : BmFindSetBitsNonDestructiveStartingAt_(&context, from, room, &root, path, out.data());
    if (count > 0 || root.level < 2 || from == 0) return count;
    from = nextUpperKey(context, root, from);  // a start behind the last leaf of a level-1 page finds nothing
    if (from == 0) return 0;
  }
}

Tree::Tree(std::shared_ptr<Session> session, std::shared_ptr<TreeState> state)
    : session_(std::move(session)), state_(std::move(state)) {}
Tree::Tree(Tree&&) noexcept = default;

Tree& Tree::operator=(Tree&& other) noexcept {
  Tree taken(std::move(other));
  std::swap(session_, taken.session_);
  std::swap(state_, taken.state_);
  return *this;
}

Tree::~Tree() {
  if (state_ == nullptr || !state_->name.empty()) return;
  state_->removed = true;
  if (session_->isOpen()) BmDisposeTree(&session_->context(), &state_->root);
}

const std::string& Tree::name() const { return state_->name; }
bool Tree::isTemporary() const { return state_->name.empty(); }

bool Tree::test(uint64_t number) const {
  requireNumber(number);
  return TreeAccess::read(*this, [&](auto& context, auto& root) { return BmTestBit(&context, &root, number) != 0; });
}

bool Tree::set(uint64_t number) {
  requireNumber(number);
  return TreeAccess::change(*this, [&](auto& context, auto& root) { return BmSetBit(&context, &root, number) == 0; });
}

bool Tree::clear(uint64_t number) {
  requireNumber(number);
  return TreeAccess::change(*this,
                            [&](auto& context, auto& root) { return BmClearBit(&context, &root, number) != 0; });
}

uint64_t Tree::set(std::span<const uint64_t> numbers) {
  requireNumbers(numbers);
  return TreeAccess::change(*this, [&](auto& context, auto& root) {
    return applyAscending(context, numbers, [&](const unsigned long* first, const unsigned long* end) {
      return BmSetBitsFromSortedArray_(&context, &root, first, end);
    });
  });
}

uint64_t Tree::clear(std::span<const uint64_t> numbers) {
  requireNumbers(numbers);
  return TreeAccess::change(*this, [&](auto& context, auto& root) {
    return applyAscending(context, numbers, [&](const unsigned long* first, const unsigned long* end) {
      return BmClearBitsFromSortedArray_(&context, &root, first, end);
    });
  });
}

uint64_t Tree::setRange(uint64_t first, uint64_t last) {
  requireRange(first, last);
  return TreeAccess::change(*this, [&](auto& context, auto& root) {
    return inPieces(context, first, last,
                    [&](uint64_t from, uint64_t to) { return setRun(context, root, from, to); });
  });
}

uint64_t Tree::clearRange(uint64_t first, uint64_t last) {
  requireRange(first, last);
  return TreeAccess::change(*this, [&](auto& context, auto& root) {
    std::vector<uint64_t> numbers(chunkNumbers);
    BmPathSType path{};
    uint64_t cleared = 0;
    for (uint64_t from = first; from <= last && !context.failed();) {
      const size_t count = readFrom(context, root, from, &path, numbers);
      const auto end = std::upper_bound(numbers.begin(), numbers.begin() + static_cast<std::ptrdiff_t>(count), last);
      const std::span<const uint64_t> found(numbers.begin(), end);
      if (found.empty()) break;
      const bool dense = found.size() == chunkNumbers && found.back() - found.front() < denseWidth;
      const uint64_t to = dense ? std::min(last, spanBase(found.front()) + rangeStep - 1) : found.back();
      cleared += dense ? clearRun(context, root, found.front(), to)
                       : BmClearBitsFromSortedArray_(&context, &root, found.data(), found.data() + found.size());
      from = to + 1;
    }
    return cleared;
  });
}

uint64_t Tree::truncate(uint64_t count) {
  const auto firstOut = select(count);
  return firstOut ? clearRange(*firstOut, BM_HIGHEST_BIT) : 0;
}

void Tree::clearAll() {
  TreeAccess::change(*this, [](auto& context, auto& root) { BmDisposeTree(&context, &root); });
}

bool Tree::empty() const { return !first(); }

uint64_t Tree::count() const {
  return TreeAccess::read(
      *this, [](auto& context, auto& root) { return BmFindNumBitsSetMax_(&context, &root, BM_END_BIT); });
}

uint64_t Tree::countRange(uint64_t first, uint64_t last) const {
  requireRange(first, last);
  return TreeAccess::read(*this, [&](auto& context, auto& root) {
    LeafWalk walk(context, root);
    uint64_t total = 0;
    for (bool more = walk.seek(first); more && walk.first() <= last && !context.failed(); more = walk.next()) {
      const RepPageHdrSType& page = walk.page();
      if (walk.first() >= first && walk.end() - 1 <= last) {
        total += countOfLeaf(page);
      } else {
        forEachNumberOfLeaf(page, walk.first(), first,
                            [&](uint64_t number) { return number <= last && ++total > 0; });
      }
    }
    return total;
  });
}

std::optional<uint64_t> Tree::first() const { return atOrAfter(0); }

std::optional<uint64_t> Tree::last() const {
  return TreeAccess::read(*this, [](auto& context, auto& root) -> std::optional<uint64_t> {
    const uint64_t highest = BmFindHighWaterMark_(&context, &root);
    if (highest == 0 && BmTestBit(&context, &root, 0) == 0) return std::nullopt;
    return highest;
  });
}

std::optional<uint64_t> Tree::atOrAfter(uint64_t number) const {
  requireNumber(number);
  return TreeAccess::read(*this, [&](auto& context, auto& root) -> std::optional<uint64_t> {
    BmPathSType path{};
    uint64_t found = 0;
    if (readFrom(context, root, number, &path, {&found, 1}) == 0) return std::nullopt;
    return found;
  });
}

std::optional<uint64_t> Tree::select(uint64_t rank) const {
  return TreeAccess::read(*this, [&](auto& context, auto& root) -> std::optional<uint64_t> {
    LeafWalk walk(context, root);
    uint64_t below = 0;
    for (bool more = walk.seek(0); more && !context.failed(); more = walk.next()) {
      const RepPageHdrSType& page = walk.page();
      const uint64_t count = countOfLeaf(page);
      if (rank - below < count) {
        std::optional<uint64_t> found;
        forEachNumberOfLeaf(page, walk.first(), 0, [&](uint64_t number) {
          if (below++ == rank) found = number;
          return !found;
        });
        return found;
      }
      below += count;
    }
    return std::nullopt;
  });
}

size_t Tree::freeNumbers(uint64_t first, uint64_t last, std::span<uint64_t> out) const {
  requireRange(first, last);
  return TreeAccess::read(*this, [&](auto& context, auto& root) {
    FreeNumbers numbers(first, last, out);
    LeafWalk walk(context, root);
    for (bool more = walk.seek(first); more && !numbers.done() && !context.failed(); more = walk.next()) {
      numbers.leaf(walk.page(), walk.first());
    }
    numbers.gap(numberEnd);
    return numbers.found();
  });
}

TreeStats Tree::stats() const {
  return TreeAccess::read(*this, [&](auto& context, auto& root) {
    TreeStats stats;
    stats.level = root.level;
    LeafWalk walk(context, root);
    for (bool more = walk.seek(0); more && !context.failed(); more = walk.next()) {
      const LeafInfo leaf = infoOf(walk);
      const bool dense = leaf.kind == LeafKind::dense;
      ++(dense ? stats.densePages : stats.listPages);
      (dense ? stats.denseNumbers : stats.listNumbers) += leaf.count;
    }
    stats.internalPages = walk.internalPages();
    stats.internalEntries = walk.internalEntries();
    stats.count = stats.listNumbers + stats.denseNumbers;
    stats.first = first();
    stats.last = last();
    return stats;
  });
}

void Tree::forEachLeaf(const std::function<void(const LeafInfo&)>& visit) const {
  TreeAccess::read(*this, [&](auto& context, auto& root) {
    LeafWalk walk(context, root);
    for (bool more = walk.seek(0); more && !context.failed(); more = walk.next()) visit(infoOf(walk));
  });
}

}  // namespace bmtree
