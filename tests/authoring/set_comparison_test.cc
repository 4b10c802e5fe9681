// What a change of formats does to messages.

#include "authoring/compare/SetComparison.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "src/adapters/logfile/common/FormatReader.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "tests/match/support/format_list.h"
#include "tests/match/support/set_generator.h"

namespace quillon {
namespace {

/// Null when `text` cannot be read.
std::unique_ptr<LogDriver> formatsOf(const std::string& text) {
  auto driver = std::make_unique<LogDriver>();
  CollectedReports reports;
  FormatReader reader(reports);
  return reader.readText(text, "formats", *driver) ? std::move(driver) : nullptr;
}

std::string change(const std::string& before, const std::string& after, const char* message) {
  const std::unique_ptr<LogDriver> old = formatsOf(before);
  const std::unique_ptr<LogDriver> made = formatsOf(after);
  const ComparedSet oldSet(*old);
  const ComparedSet newSet(*made);
  return changeName(SetComparer(oldSet, newSet).compare(message).change);
}

TEST(SetComparer, SaysWhatChanges) {
  const std::string block = "FORMAT A\na %s %s\nx $1\np PRINTF(\"<%s>\", x)\nc \"k\"\nEND\n";
  struct Case {
    const char *after, *message, *expected;
  };
  const Case cases[] = {
      {"FORMAT A\na %s %s\nx $1\np PRINTF(\"<%s>\", x)\nc \"k\"\nEND\n", "a 1 2", "none"},
      {"FORMAT B\na %s %s\nx $1\nEND\n", "a 1 2", "class"},
      {"FORMAT A\na %s 2\nx $1\np PRINTF(\"<%s>\", x)\nc \"k\"\nEND\n", "a 1 2", "none"},  // $2 is in no slot
      {"FORMAT A\na %s 2\nx $1\np PRINTF(\"<%s>\", x)\nc \"k\"\nEND\n", "a 1 3", "lost"},
      {"FORMAT A\n%s %s %s\nx $1\np PRINTF(\"<%s>\", x)\nc \"k\"\nEND\n", "b 1 2", "gained"},
      {"FORMAT A\n%s %s %s\nx $1\np PRINTF(\"<%s>\", x)\nc \"k\"\nEND\n", "a 1 2", "values"},
      {"FORMAT A\n%s %s %s\nx $2\np PRINTF(\"<%s>\", x)\nc \"k\"\nEND\n", "a 1 2", "none"},
      {"FORMAT A\na %s %s\nx $1\np PRINTF(\"[%s]\", x)\nc \"k\"\nEND\n", "a 1 2", "values"},
      {"FORMAT A\na %s %s\nx \"1\"\np PRINTF(\"<%s>\", x)\nc \"k\"\nEND\n", "a 1 2", "none"},
      {"FORMAT A\na %s %s\nx \"1\"\np PRINTF(\"<%s>\", x)\nc \"k\"\nEND\n", "a 0 2", "values"},
      {"FORMAT A\na %s %s\nx $1\np \"<1>\"\nc \"k\"\nEND\n", "a 1 2", "none"},
      {"FORMAT A\na %s %s\nx $1\nc \"k\"\nEND\n", "a 1 2", "slots"},
      {"FORMAT A\na %s %s\nx $1\nc \"k\"\np PRINTF(\"<%s>\", x)\nEND\n", "a 1 2", "slots"},  // in another order
  };
  for (const Case& c : cases) EXPECT_EQ(c.expected, change(block, c.after, c.message)) << c.after << c.message;
}

/// The obvious way: bind both, make both events, compare them.
Change plainChange(const LogDriver& before, const LogDriver& after, const SetComparer& comparer,
                   const Difference& difference) {
  const auto nameOf = [](const LogDriver& driver, std::uint32_t place) {
    auto format = driver.getFormats().begin();
    for (; place > 0; --place) ++format;
    return std::string((*format)->getName().view());
  };
  if (difference.before == Difference::kNone || difference.after == Difference::kNone) return difference.change;
  if (nameOf(before, difference.before) != nameOf(after, difference.after)) return Change::kClass;
  const std::vector<SlotValue> old = comparer.slotsBefore();
  const std::vector<SlotValue> made = comparer.slotsAfter();
  const auto isSameName = [](const SlotValue& a, const SlotValue& b) { return a.name == b.name; };
  if (!std::equal(old.begin(), old.end(), made.begin(), made.end(), isSameName)) return Change::kSlots;
  return old == made ? Change::kNone : Change::kValues;
}

TEST(SetComparer, SavesWorkAndNothingElse) {
  std::size_t seen[6] = {};
  for (std::uint64_t seed = 1; seed <= 60; ++seed) {
    SetGenerator generator(seed);
    FormatList formats = generator.formats();
    const std::unique_ptr<LogDriver> before = formatsOf(formatFile(formats));
    if (seed % 3 == 0) std::rotate(formats.begin(), formats.begin() + 1, formats.end());
    if (seed % 3 == 1) formats.pop_back();
    const std::unique_ptr<LogDriver> after = formatsOf(formatFile(formats));
    if (!before || !after) continue;  // a word that is too long for a format file
    const ComparedSet old(*before);
    const ComparedSet made(*after);
    SetComparer comparer(old, made);
    for (int i = 0; i < 40; ++i) {
      const std::string message = generator.message();
      const Difference difference = comparer.compare(message);
      ++seen[static_cast<std::size_t>(difference.change)];
      ASSERT_EQ(changeName(plainChange(*before, *after, comparer, difference)), changeName(difference.change))
          << "seed " << seed << ": " << printable(message);
    }
  }
  EXPECT_LT(20U, seen[static_cast<std::size_t>(Change::kNone)]);
  EXPECT_LT(20U, seen[static_cast<std::size_t>(Change::kClass)]);
  EXPECT_LT(20U, seen[static_cast<std::size_t>(Change::kLost)]);
}

}  // namespace
}  // namespace quillon
