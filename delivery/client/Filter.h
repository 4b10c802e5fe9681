#ifndef QUILLON_DELIVERY_CLIENT_FILTER_H_
#define QUILLON_DELIVERY_CLIENT_FILTER_H_

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "config/TomlTable.h"
#include "delivery/Record.h"

namespace re2 {
class RE2;
}

namespace quillon::delivery {

/// A list of rules, of which the first that an event answers to says whether it passes. When none does, the opposite of
/// the last rule happens: a list that ends with what passes lets nothing else through, one that ends with what is
/// dropped lets all else through. Without rules everything passes.
///
/// Regular expressions are RE2's (github.com/google/re2), whose time is linear in the value whatever the expression is.
/// Only read once made, by any number of threads.
class Filter {
 public:
  bool isEmpty() const { return rules_.empty(); }
  bool passes(const Record& record) const;

 private:
  friend class FilterReader;

  /// What must hold of one slot.
  struct Condition {
    std::string slot;
    bool isAbsent = false;
    std::vector<std::string> values;          ///< One of which it equals, when there are any;
    std::shared_ptr<const re2::RE2> pattern;  ///< and that is found in it, when there is one.
  };
  /// All of it must hold.
  struct Rule {
    bool passes = true;
    std::vector<std::string> classes;  ///< Patterns, one of which matches; none: any class.
    std::vector<Condition> conditions;
  };

  static bool holds(const Rule& rule, const Record& record);
  static bool holds(const Condition& condition, const Record& record);

  std::vector<Rule> rules_;
};

/// Reads the array of tables "filter" of `table`. What is wrong becomes faults, also what can never hold of records of
/// this form.
Filter readFilter(TomlTable& table, RecordForm form);

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_CLIENT_FILTER_H_
