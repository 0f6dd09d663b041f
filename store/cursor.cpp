#include "treeaccess.h"

namespace bmtree {

struct Cursor::Position {
  std::shared_ptr<Session> session;
  std::shared_ptr<TreeState> state;
  uint64_t from;       // the next number is not below this
  BmPathSType path{};  // stands there if `placed` and the tree has not changed since `changes`
  bool placed = false;
  uint64_t changes = 0;
};

Cursor::Cursor(std::unique_ptr<Position> position) : position_(std::move(position)) {}
Cursor::Cursor(Cursor&&) noexcept = default;
Cursor& Cursor::operator=(Cursor&&) noexcept = default;
Cursor::~Cursor() = default;

void Cursor::seek(uint64_t from) {
  position_->from = from;
  position_->placed = false;
}

size_t Cursor::next(std::span<uint64_t> out) {
  Position& at = *position_;
  if (out.empty() || at.from >= numberEnd) return 0;
  const TreeState& state = *at.state;
  const size_t count = at.session->read(state, [&](StoreContext& context) -> size_t {
    if (!at.placed || at.changes != state.changes) return readFrom(context, state.root, at.from, &at.path, out);
    return BmFindSetBitsNonDestructive_(&context, static_cast<long>(out.size()), &state.root, &at.path, out.data());
  });
  at.placed = true;
  at.changes = state.changes;
  at.from = count < out.size() ? numberEnd : out[count - 1] + 1;
  return count;
}

Cursor Tree::numbers(uint64_t from) const {
  return Cursor(std::unique_ptr<Cursor::Position>(new Cursor::Position{session_, state_, from}));
}

}  // namespace bmtree
