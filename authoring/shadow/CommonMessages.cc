#include "authoring/shadow/CommonMessages.h"

#include <algorithm>

#include "foundation/characters.h"

namespace quillon {

namespace {

constexpr std::size_t kMostItems = UINT16_MAX - 2;

}  // namespace

/// A format without variables binds what some of its components use up, in their order; so each may be missing.
MessageShape::MessageShape(const Literal& literal, std::uint32_t place) {
  const bool optional = literal.variables(place) == 0;
  for (const Operation* operation = literal.begin(place); operation != literal.end(place); ++operation) {
    if (items_.size() > kMostItems / 2) break;
    switch (operation->kind()) {
      case ComponentKind::kConstant:
        addText(literal.text(*operation), optional);
        break;
      case ComponentKind::kNewline:
        addText("\n", optional);
        break;
      case ComponentKind::kBlank:
        if (!optional) add(Class::kBlank, false);
        add(Class::kBlank, true);
        break;
      case ComponentKind::kString:
        addWord();
        break;
      case ComponentKind::kTime:
        for (int i = 0; i < 2; ++i) {
          addWord();
          add(Class::kBlank, false), add(Class::kBlank, true);
        }
        addWord();
        break;
      case ComponentKind::kStar:
      case ComponentKind::kPlus:
        add(Class::kAny, true);
        break;
    }
  }
  add(Class::kBlank, true);
}

void MessageShape::addText(std::string_view text, bool optional) {
  text = text.substr(0, kMostItems / 2);
  if (optional && !text.empty()) {
    items_.push_back({Class::kByte, text[0], false, static_cast<std::uint16_t>(text.size())});
    text.remove_prefix(1);
  }
  for (const char c : text) items_.push_back({Class::kByte, c, false, 0});
}

void MessageShape::addWord() {
  add(Class::kSolid, false);
  add(Class::kSolid, true);
}

bool CommonMessages::takes(const Item& item, char byte) {
  switch (item.what) {
    case Class::kByte:
      return byte == item.byte;
    case Class::kSolid:
      return !endsWord(byte);
    case Class::kBlank:
      return endsWord(byte);
    default:
      return true;
  }
}

CommonMessages::CommonMessages(const MessageShape& one, const MessageShape& other, char ordinary)
    : one_(one.items()),
      other_(other.items()),
      rows_(one_.size() + 1),
      columns_(other_.size() + 1),
      fewest_(rows_ * columns_, kFar),
      bytes_({ordinary, ' '}),
      poor_(bytes_) {
  for (const auto* items : {&one_, &other_}) {
    for (const Item& item : *items) {
      if (item.what == Class::kByte && bytes_.find(item.byte) == std::string::npos) bytes_ += item.byte;
    }
  }
  fill();
}

void CommonMessages::fill() {
  const auto meet = [](const Item& a, const Item& b) {
    if (a.what == Class::kByte) return takes(b, a.byte);
    if (b.what == Class::kByte) return takes(a, b.byte);
    return a.what == b.what || a.what == Class::kAny || b.what == Class::kAny;
  };
  at(rows_ - 1, columns_ - 1) = 0;
  for (std::size_t i = rows_; i-- > 0;) {
    for (std::size_t j = columns_; j-- > 0;) {
      const Item* const a = i + 1 < rows_ ? &one_[i] : nullptr;
      const Item* const b = j + 1 < columns_ ? &other_[j] : nullptr;
      std::uint16_t best = at(i, j);
      if (a && a->repeats) best = std::min(best, at(i + 1, j));
      if (a && a->skip > 0) best = std::min(best, at(i + a->skip, j));
      if (b && b->repeats) best = std::min(best, at(i, j + 1));
      if (b && b->skip > 0) best = std::min(best, at(i, j + b->skip));
      if (a && b && !(a->repeats && b->repeats) && meet(*a, *b)) {
        const std::uint16_t next = at(a->repeats ? i : i + 1, b->repeats ? j : j + 1);
        if (next < kFar - 1) best = std::min<std::uint16_t>(best, static_cast<std::uint16_t>(next + 1));
      }
      at(i, j) = best;
    }
  }
}

/// Adds the pairs that are reached without a byte, and drops those that are more than `left` bytes from the end.
void CommonMessages::close(std::vector<Pair>& pairs, std::size_t left) const {
  const auto reach = [&](std::size_t one, std::size_t other) {
    const Pair pair{static_cast<std::uint16_t>(one), static_cast<std::uint16_t>(other)};
    if (at(one, other) <= left && std::find(pairs.begin(), pairs.end(), pair) == pairs.end()) pairs.push_back(pair);
  };
  for (std::size_t n = 0; n < pairs.size(); ++n) {
    const std::size_t i = pairs[n].one;
    const std::size_t j = pairs[n].other;
    if (i + 1 < rows_ && one_[i].repeats) reach(i + 1, j);
    if (i + 1 < rows_ && one_[i].skip > 0) reach(i + one_[i].skip, j);
    if (j + 1 < columns_ && other_[j].repeats) reach(i, j + 1);
    if (j + 1 < columns_ && other_[j].skip > 0) reach(i, j + other_[j].skip);
  }
}

/// The pairs behind `byte`. Where no item asks for that very byte it is as good as the ordinary one, and left out.
std::vector<CommonMessages::Pair> CommonMessages::after(const std::vector<Pair>& pairs, char byte,
                                                        std::size_t left) const {
  std::vector<Pair> next;
  const bool stands = rich_ || poor_.find(byte) != std::string::npos;
  for (const Pair pair : pairs) {
    if (pair.one + 1U >= rows_ || pair.other + 1U >= columns_) continue;
    const Item& a = one_[pair.one];
    const Item& b = other_[pair.other];
    if (!takes(a, byte) || !takes(b, byte)) continue;
    if (!stands && a.what != Class::kByte && b.what != Class::kByte) continue;
    const Pair behind{static_cast<std::uint16_t>(pair.one + (a.repeats ? 0 : 1)),
                      static_cast<std::uint16_t>(pair.other + (b.repeats ? 0 : 1))};
    if (at(behind.one, behind.other) <= left && std::find(next.begin(), next.end(), behind) == next.end())
      next.push_back(behind);
  }
  close(next, left);
  return next;
}

}  // namespace quillon
