#ifndef QUILLON_AUTHORING_COMPARE_SETCOMPARISON_H_
#define QUILLON_AUTHORING_COMPARE_SETCOMPARISON_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "authoring/explain/SlotValues.h"
#include "src/adapters/logfile/match/FormatSet.h"
#include "src/adapters/logfile/match/Matcher.h"

class FormatSpec;
class LogDriver;

namespace quillon {

/// What becomes of a message when one set of formats takes the place of another. An event is its class and its slots;
/// a variable that no slot shows does not count, nor does the place of a block in its file.
enum class Change { kNone, kGained, kLost, kClass, kSlots, kValues };

/// "newly bound", "lost", "another class", "other slots", "other values"; "gained", "lost", "class" and so on.
const char* changeText(Change change);
const char* changeName(Change change);

/// The formats of a driver, ready to be compared with those of another. Constant, and shared by threads.
class ComparedSet {
 public:
  /// `driver` must live, and stay as it is, as long as this object.
  explicit ComparedSet(const LogDriver& driver);

  struct Format {
    const FormatSpec* format;
    std::string string;              ///< Its format string.
    std::vector<std::string> slots;  ///< How each is defined: equal ones make the same of equal slots and variables.
  };

  const std::shared_ptr<const FormatSet>& formats() const { return formats_; }
  const Format& at(std::uint32_t place) const { return all_[place]; }
  std::size_t size() const { return all_.size(); }
  std::string_view name(std::uint32_t place) const;

 private:
  std::shared_ptr<const FormatSet> formats_;
  std::vector<Format> all_;
};

/// One message under both sets.
struct Difference {
  static constexpr std::uint32_t kNone = UINT32_MAX;

  Change change = Change::kNone;
  std::uint32_t before = kNone;  ///< The place of the block that binds it in the old set, in the order of trying,
  std::uint32_t after = kNone;   ///< and in the new one.
};

/// Binds messages to both sets and says what changes, without making an event where the two blocks make the same of the
/// same. One for each thread.
class SetComparer {
 public:
  SetComparer(const ComparedSet& before, const ComparedSet& after);

  /// `message` as Matcher::bind() has it.
  Difference compare(std::string_view message, bool fromEventLog = false);

  /// The slots of the message compared last under the old set, and under the new one; empty when it was not bound.
  std::vector<SlotValue> slotsBefore() const;
  std::vector<SlotValue> slotsAfter() const;

  /// How many messages the block at a place has bound.
  std::uint64_t boundBefore(std::uint32_t place) const { return oldMatcher_.counts(place).bound; }
  std::uint64_t boundAfter(std::uint32_t place) const { return newMatcher_.counts(place).bound; }

 private:
  /// A slot of both events: what it shows of each side, a variable (from 0) or a text that is always the same.
  struct SlotPair {
    static constexpr std::uint32_t kText = UINT32_MAX;
    std::uint32_t before = kText;
    std::uint32_t after = kText;
    std::string textBefore;
    std::string textAfter;
  };

  /// What two blocks, one of each set, make of messages that both bind.
  struct Relation {
    /// Of every message. Where it is kNone, it is so as far as these say: the pairs, and the whole events if that is
    /// needed.
    Change change = Change::kNone;
    std::vector<SlotPair> pairs;
    bool comparesEvents = false;
  };

  const Relation& relation(std::uint32_t before, std::uint32_t after);
  static Relation relate(const ComparedSet::Format& before, const ComparedSet::Format& after);
  bool isSame(const SlotPair& pair) const;

  const ComparedSet& old_;
  const ComparedSet& new_;
  Matcher oldMatcher_;
  Matcher newMatcher_;
  const Match* oldMatch_ = nullptr;
  const Match* newMatch_ = nullptr;
  std::unordered_map<std::uint64_t, Relation> relations_;
};

}  // namespace quillon

#endif  // QUILLON_AUTHORING_COMPARE_SETCOMPARISON_H_
