#ifndef QUILLON_AUTHORING_SHADOW_COMMONMESSAGES_H_
#define QUILLON_AUTHORING_SHADOW_COMMONMESSAGES_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "src/adapters/logfile/match/Literal.h"

namespace quillon {

/// The shape of the messages of a format, as a row of items, each of which is a byte or a run of bytes of a class. It
/// tells too little rather than too much: every message that the format binds, and that has no white space in front,
/// has this shape; what has this shape need not bind.
class MessageShape {
 public:
  enum class Class : std::uint8_t { kByte, kSolid, kBlank, kAny };  ///< kSolid: all but white space; a newline is.

  struct Item {
    Class what;
    char byte;           ///< Of a kByte.
    bool repeats;        ///< Any number of times, also none.
    std::uint16_t skip;  ///< Not 0: this one and the next `skip` - 1 may be missing together.
  };

  MessageShape(const Literal& literal, std::uint32_t place);

  const std::vector<Item>& items() const { return items_; }

 private:
  void add(Class what, bool repeats) { items_.push_back({what, '\0', repeats, 0}); }
  void addText(std::string_view text, bool optional);
  void addWord();

  std::vector<Item> items_;
};

/// Messages that have two shapes at once: candidates for what two formats both bind, shortest first.
///
/// First the table of the fewest bytes that lead from a pair of items to the end of both shapes, from the end to the
/// start: the product of two automata, which here go forward only. Then a walk over all texts of one length, then of
/// the next, that never enters a pair from which the end is too far.
class CommonMessages {
 public:
  /// `ordinary` stands where any byte would do.
  CommonMessages(const MessageShape& one, const MessageShape& other, char ordinary);

  /// No message has both shapes.
  bool none() const { return at(0, 0) == kFar; }
  /// Of the shortest message, if there is one.
  std::size_t length() const { return at(0, 0); }
  /// The work of the table: its places.
  std::size_t cells() const { return rows_ * columns_; }

  /// Calls `visit` with each message, without the empty one, until it returns true, or `most` steps of the walk are
  /// made, or messages are `longer` bytes longer than the shortest. `rich`: where any byte would do, try those of the
  /// formats too. True when `visit` returned true.
  template <class Visit>
  bool find(const Visit& visit, std::size_t most, std::size_t longer, bool rich);
  /// The steps that the last find() made.
  std::size_t steps() const { return made_; }

 private:
  using Class = MessageShape::Class;
  using Item = MessageShape::Item;
  struct Pair {
    std::uint16_t one;
    std::uint16_t other;
    bool operator==(const Pair&) const = default;
  };

  static constexpr std::uint16_t kFar = UINT16_MAX;

  static bool takes(const Item& item, char byte);
  std::uint16_t& at(std::size_t one, std::size_t other) { return fewest_[one * columns_ + other]; }
  std::uint16_t at(std::size_t one, std::size_t other) const { return fewest_[one * columns_ + other]; }
  void fill();
  void close(std::vector<Pair>& pairs, std::size_t left) const;
  std::vector<Pair> after(const std::vector<Pair>& pairs, char byte, std::size_t left) const;

  template <class Visit>
  bool walk(const std::vector<Pair>& pairs, std::size_t left, const Visit& visit);

  const std::vector<Item>& one_;
  const std::vector<Item>& other_;
  const std::size_t rows_;
  const std::size_t columns_;
  std::vector<std::uint16_t> fewest_;
  std::string bytes_;  ///< What a message may consist of.
  std::string poor_;   ///< The few that stand for a class.
  bool rich_ = false;
  std::size_t most_ = 0;
  std::size_t made_ = 0;
  std::string text_;
};

template <class Visit>
bool CommonMessages::find(const Visit& visit, std::size_t most, std::size_t longer, bool rich) {
  if (none()) return false;
  most_ = most;
  made_ = 0;
  rich_ = rich;
  const std::size_t shortest = at(0, 0);
  for (std::size_t length = shortest > 0 ? shortest : 1; length <= shortest + longer && made_ < most_; ++length) {
    std::vector<Pair> start = {{0, 0}};
    close(start, length);
    text_.clear();
    if (walk(start, length, visit)) return true;
  }
  return false;
}

template <class Visit>
bool CommonMessages::walk(const std::vector<Pair>& pairs, std::size_t left, const Visit& visit) {
  if (made_ == most_) return false;
  ++made_;
  if (left == 0) return visit(std::string_view(text_));
  for (const char byte : bytes_) {
    const std::vector<Pair> next = after(pairs, byte, left - 1);
    if (next.empty()) continue;
    text_.push_back(byte);
    if (walk(next, left - 1, visit)) return true;
    text_.pop_back();
  }
  return false;
}

}  // namespace quillon

#endif  // QUILLON_AUTHORING_SHADOW_COMMONMESSAGES_H_
