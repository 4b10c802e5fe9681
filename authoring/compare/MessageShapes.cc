#include "authoring/compare/MessageShapes.h"

#include <algorithm>
#include <utility>

#include "foundation/characters.h"

namespace quillon {
namespace {

constexpr std::size_t kLongestShape = 500;
constexpr std::size_t kLongestExample = 2000;

bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isWordByte(char c) { return isLetter(c) || isDigit(c) || c < 0; }
bool isHexLetter(char c) { return (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }
bool isHex(char c) { return isDigit(c) || isHexLetter(c); }
bool isPathByte(char c) { return isWordByte(c) || std::string_view("/._-+~%@#$").find(c) != std::string_view::npos; }

template <class Predicate>
std::size_t run(std::string_view text, Predicate belongs) {
  return static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), belongs) - text.begin());
}

/// Nothing of the word goes on behind the first `length` bytes.
bool endsAt(std::string_view text, std::size_t length) { return length == text.size() || !isWordByte(text[length]); }

/// The bytes of a path that `text` begins with; 0 when there is none. "/" alone is none.
std::size_t pathAt(std::string_view text) {
  if (text[0] != '/') return 0;
  std::size_t length = run(text, isPathByte);
  while (length > 1 && text[length - 1] == '.') --length;  // ends a sentence
  return length > 1 ? length : 0;
}

/// Four numbers with dots between them.
std::size_t ipv4At(std::string_view text) {
  std::size_t at = 0;
  for (int i = 0; i < 4; ++i) {
    if (i > 0) {
      if (at == text.size() || text[at] != '.') return 0;
      ++at;
    }
    const std::size_t digits = run(text.substr(at), isDigit);
    if (digits == 0 || digits > 3) return 0;
    at += digits;
  }
  return endsAt(text, at) ? at : 0;
}

/// IPv6 and MAC: groups of hexadecimal digits with colons between them. Two colons are a time of day; with an empty
/// group, or with five colons or more, it is an address.
std::size_t colonAddressAt(std::string_view text) {
  const std::size_t length = run(text, [](char c) { return isHex(c) || c == ':'; });
  const std::string_view groups = text.substr(0, length);
  const auto colons = std::count(groups.begin(), groups.end(), ':');
  const bool hasEmptyGroup = groups.find("::") != std::string_view::npos;
  const bool isLong = colons >= 5 && groups.back() != ':';
  return length > 2 && (isLong || (hasEmptyGroup && run(groups, isHex) <= 4)) && endsAt(text, length) ? length : 0;
}

/// "0x1f"; "1f9a"; the five groups of a UUID, of which some may be all digits.
std::size_t hexAt(std::string_view text) {
  if (text.starts_with("0x") || text.starts_with("0X")) {
    const std::size_t digits = run(text.substr(2), isHex);
    if (digits > 0 && endsAt(text, 2 + digits)) return 2 + digits;
  }
  static constexpr std::size_t kUuid[] = {8, 4, 4, 4, 12};
  std::size_t uuid = 0;
  for (const std::size_t group : kUuid) {
    if (group != 8 && (uuid == text.size() || text[uuid++] != '-')) break;
    const std::size_t digits = run(text.substr(uuid), isHex);
    if (digits != group) break;
    uuid += digits;
    if (group == 12) return uuid;
  }
  const std::size_t length = run(text, isHex);
  const std::string_view digits = text.substr(0, length);
  const bool isMixed =
      std::any_of(digits.begin(), digits.end(), isDigit) && std::any_of(digits.begin(), digits.end(), isHexLetter);
  return length >= 4 && isMixed && endsAt(text, length) ? length : 0;
}

/// What can begin where a word does.
struct Folded {
  std::size_t length;
  const char* name;
};
Folded foldedAt(std::string_view text) {
  if (const std::size_t length = pathAt(text)) return {length, "<path>"};
  if (const std::size_t length = ipv4At(text)) return {length, "<address>"};
  if (const std::size_t length = colonAddressAt(text)) return {length, "<address>"};
  if (const std::size_t length = hexAt(text)) return {length, "<hex>"};
  return {0, ""};
}

}  // namespace

std::string shapeOf(std::string_view message) {
  std::string shape;
  bool inWord = false;
  for (std::size_t at = 0; at < message.size() && shape.size() < kLongestShape;) {
    const std::string_view rest = message.substr(at);
    Folded folded{0, ""};
    if (isWhiteSpace(rest[0])) {
      folded = {run(rest, isWhiteSpace), " "};
    } else if (!inWord) {
      folded = foldedAt(rest);
    }
    const bool isMinus = rest[0] == '-' && !inWord && rest.size() > 1;
    if (folded.length == 0 && isDigit(rest[isMinus ? 1 : 0]))
      folded = {(isMinus ? 1 : 0) + run(rest.substr(isMinus ? 1 : 0), isDigit), "<number>"};
    if (folded.length > 0) {
      shape += folded.name;
      inWord = isWordByte(message[at + folded.length - 1]);
      at += folded.length;
    } else {
      shape += rest[0];
      inWord = isWordByte(rest[0]);
      ++at;
    }
  }
  return shape;
}

void MessageShapes::add(std::string_view message) {
  Shape& shape = of(shapeOf(message));
  if (shape.count++ == 0) shape.example = message.substr(0, kLongestExample);
  if (shapes_.size() > kMostShapes) prune();
}

void MessageShapes::add(MessageShapes&& later) {
  rest_ += later.rest_;
  for (Shape& other : later.shapes_) {
    Shape& shape = of(std::move(other.shape));
    if (shape.count == 0) shape.example = std::move(other.example);
    shape.count += other.count;
    if (shapes_.size() > kMostShapes) prune();
  }
  later.clear();
}

void MessageShapes::clear() {
  places_.clear();
  shapes_.clear();
  rest_ = 0;
}

std::vector<const MessageShapes::Shape*> MessageShapes::byCount() const {
  std::vector<const Shape*> shapes;
  shapes.reserve(shapes_.size());
  for (const Shape& shape : shapes_) shapes.push_back(&shape);
  std::stable_sort(shapes.begin(), shapes.end(), [](const Shape* a, const Shape* b) { return a->count > b->count; });
  return shapes;
}

MessageShapes::Shape& MessageShapes::of(std::string shape) {
  const auto [known, isNew] = places_.try_emplace(std::move(shape), shapes_.size());
  if (!isNew) return shapes_[known->second];
  shapes_.push_back({known->first, 0, {}});
  return shapes_.back();
}

void MessageShapes::prune() {
  std::vector<Shape> kept;
  kept.reserve(kMostShapes);
  const std::vector<const Shape*> shapes = byCount();
  for (std::size_t i = kMostShapes / 2; i < shapes.size(); ++i) rest_ += shapes[i]->count;
  for (std::size_t i = 0; i < kMostShapes / 2; ++i) kept.push_back(*shapes[i]);
  places_.clear();
  shapes_.clear();
  for (Shape& shape : kept) {
    places_.emplace(shape.shape, shapes_.size());
    shapes_.push_back(std::move(shape));
  }
}

}  // namespace quillon
