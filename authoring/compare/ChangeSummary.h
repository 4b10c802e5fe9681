#ifndef QUILLON_AUTHORING_COMPARE_CHANGESUMMARY_H_
#define QUILLON_AUTHORING_COMPARE_CHANGESUMMARY_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "authoring/compare/SetComparison.h"

namespace quillon {

/// A message that changes, with what it becomes.
struct ChangedMessage {
  Difference difference;
  std::string message;
  std::vector<SlotValue> before;
  std::vector<SlotValue> after;
};

/// What a log's messages become under two sets of formats, by pair of classes. For one thread at a time: each thread
/// fills its own for a stretch of the log, and they are added up in the order of these. Room grows with the pairs.
class ChangeSummary {
 public:
  /// Counts a message; the first of its kind is kept as an example. `slots` gives its slots when it is asked.
  void add(const Difference& difference, std::string_view message, const SetComparer& slots);
  /// Those of `later` come behind these.
  void add(ChangeSummary&& later);
  /// Adds what `comparer` has bound.
  void addBound(const ComparedSet& before, const ComparedSet& after, const SetComparer& comparer);
  void clear();

  bool hasChanges() const { return !changes_.empty(); }

  /// Whole lines: how many messages change in which way, the pairs of classes, the most frequent first, each with an
  /// example, and the blocks of both sets that have bound nothing.
  std::string text(const ComparedSet& before, const ComparedSet& after) const;
  /// The same as an object in one line, without a newline.
  std::string json(const ComparedSet& before, const ComparedSet& after) const;

 private:
  using Key = std::tuple<std::uint32_t, std::uint32_t, Change>;
  struct Entry {
    std::uint64_t count = 0;
    ChangedMessage example;  ///< The first one.
  };

  Entry& entryOf(const Difference& difference);
  std::vector<const Entry*> byCount() const;
  std::uint64_t countOf(Change change) const;

  std::uint64_t messages_ = 0;
  std::map<Key, std::size_t> places_;       ///< In `changes_`.
  std::vector<Entry> changes_;              ///< In the order of their first messages.
  std::vector<std::uint64_t> boundBefore_;  ///< By place.
  std::vector<std::uint64_t> boundAfter_;
};

/// One change, in whole lines: the classes, the message, and the slots that differ.
std::string changeText(const ChangedMessage& changed, const ComparedSet& before, const ComparedSet& after);
/// The same as an object in one line, without a newline.
std::string changeJson(const ChangedMessage& changed, const ComparedSet& before, const ComparedSet& after);

}  // namespace quillon

#endif  // QUILLON_AUTHORING_COMPARE_CHANGESUMMARY_H_
