#include "delivery/client/Filter.h"

#include <fnmatch.h>
#include <re2/re2.h>

#include <algorithm>
#include <optional>
#include <utility>

namespace quillon::delivery {
namespace {

bool areAlike(const std::string& pattern, std::string_view name) {
  if (pattern.find_first_of("*?[\\") == std::string::npos) return pattern == name;
  return fnmatch(pattern.c_str(), std::string(name).c_str(), 0) == 0;
}

}  // namespace

bool Filter::passes(const Record& record) const {
  for (const Rule& rule : rules_) {
    if (holds(rule, record)) return rule.passes;
  }
  return rules_.empty() || !rules_.back().passes;
}

bool Filter::holds(const Rule& rule, const Record& record) {
  const auto isAlike = [&](const std::string& pattern) { return areAlike(pattern, record.className); };
  if (!rule.classes.empty() && std::ranges::none_of(rule.classes, isAlike)) return false;
  return std::ranges::all_of(rule.conditions, [&](const Condition& condition) { return holds(condition, record); });
}

bool Filter::holds(const Condition& condition, const Record& record) {
  const auto slot = std::ranges::find(record.values, condition.slot, &NamedValue::name);
  if (slot == record.values.end() || condition.isAbsent) return slot == record.values.end() && condition.isAbsent;
  if (!condition.values.empty() && std::ranges::find(condition.values, slot->value) == condition.values.end()) {
    return false;
  }
  return !condition.pattern || re2::RE2::PartialMatch({slot->value.data(), slot->value.size()}, *condition.pattern);
}

class FilterReader {
 public:
  explicit FilterReader(RecordForm form) : form_(form) {}

  Filter read(TomlTable& table) {
    Filter filter;
    for (TomlTable& rule : table.tables("filter")) filter.rules_.push_back(readRule(rule));
    return filter;
  }

 private:
  Filter::Rule readRule(TomlTable& table) {
    Filter::Rule rule;
    table.require("action");
    table.readWord("action", rule.passes, {{"pass", true}, {"drop", false}});
    table.readNames("class", rule.classes);
    if (form_ == RecordForm::kRaw && table.has("class")) {
      table.report("class", "with form = \"raw\" there are no classes yet: whoever gets the messages binds them");
    }
    if (std::optional<TomlTable> slots = table.table("slot")) {
      if (form_ != RecordForm::kEvent) {
        table.report("slot", "filters on slots need form = \"event\": the slots are made by whoever gets this form");
      }
      for (const std::string& name : slots->names()) {
        if (std::optional<TomlTable> slot = slots->table(name)) rule.conditions.push_back(readCondition(name, *slot));
      }
    }
    table.finish();
    return rule;
  }

  static Filter::Condition readCondition(const std::string& name, TomlTable& table) {
    Filter::Condition condition;
    condition.slot = name;
    table.read("absent", condition.isAbsent);
    if (table.readNames("equals", condition.values) && condition.values.empty()) {
      table.report("equals", "there must be one value at least");
    }
    std::string pattern;
    if (table.readName("matches", pattern)) {
      re2::RE2::Options quiet;
      quiet.set_log_errors(false);
      auto made = std::make_shared<re2::RE2>(pattern, quiet);
      if (!made->ok()) table.report("matches", "no regular expression: " + made->error());
      condition.pattern = std::move(made);
    }
    const bool asksForValue = table.has("equals") || table.has("matches");
    if (condition.isAbsent && asksForValue) table.report("absent", "a slot that is absent has no value");
    if (!condition.isAbsent && !asksForValue) {
      table.report("", "say what is asked of the slot: equals, matches or absent = true");
    }
    table.finish();
    return condition;
  }

  const RecordForm form_;
};

Filter readFilter(TomlTable& table, RecordForm form) { return FilterReader(form).read(table); }

}  // namespace quillon::delivery
