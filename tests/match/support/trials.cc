#include "tests/match/support/trials.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <vector>

#include "src/adapters/logfile/common/LogDriver.h"
#include "tests/match/support/comparison.h"
#include "tests/match/support/scaled_set.h"
#include "tests/match/support/set_generator.h"

namespace quillon {

namespace {

/// All sequences of up to `most` elements of `alphabet`, the short ones first.
template <class Sequence, class Alphabet>
std::vector<Sequence> sequences(const Alphabet& alphabet, std::size_t most) {
  std::vector<Sequence> all(1);
  std::size_t begin = 0;
  for (std::size_t length = 1; length <= most; ++length) {
    const std::size_t end = all.size();
    for (; begin < end; ++begin) {
      for (const auto& element : alphabet) {
        Sequence longer = all[begin];
        longer.push_back(element);
        all.push_back(std::move(longer));
      }
    }
  }
  return all;
}

FormatList allFormats(std::size_t components) {
  static const Tokens alphabet = {"a", "b", "%s", "%s*", "%s+", " ", "%n"};
  return sequences<Tokens>(alphabet, components);
}

std::vector<std::string> allMessages(std::size_t characters) {
  return sequences<std::string>(std::string_view("ab \n"), characters);
}

FormatList reversed(const FormatList& formats) { return {formats.rbegin(), formats.rend()}; }

/// Counts pairs up to the first difference.
class Series {
 public:
  bool failed() const { return !finding_.failure.empty(); }
  const Finding& finding() const { return finding_; }

  void compare(Comparison& comparison, const FormatList& formats, std::string_view message, bool eventLog,
               std::uint64_t seed) {
    ++finding_.pairs;
    const bool agree = comparison.agree(message, eventLog);
    finding_.bound += comparison.bound();
    if (!agree && !failed()) {
      finding_.failure = "seed " + std::to_string(seed) + "\n" + minimised({formats, std::string(message), eventLog});
    }
  }

  void compareBoth(Comparison& comparison, const FormatList& formats, std::string_view message, std::uint64_t seed) {
    compare(comparison, formats, message, false, seed);
    compare(comparison, formats, message, true, seed);
  }

 private:
  Finding finding_;
};

}  // namespace

Finding& Finding::operator+=(const Finding& other) {
  pairs += other.pairs;
  bound += other.bound;
  if (failure.empty()) failure = other.failure;
  return *this;
}

Finding tryAllFormats(std::size_t components, std::size_t characters) {
  const std::vector<std::string> messages = allMessages(characters);
  Series series;
  for (const Tokens& tokens : allFormats(components)) {
    const FormatList formats = {tokens};
    Comparison comparison(formats);
    for (const std::string& message : messages) series.compareBoth(comparison, formats, message, 0);
    if (series.failed()) break;
  }
  return series.finding();
}

Finding trySetsOfAllFormats(std::uint64_t seed, std::size_t sets, std::size_t characters) {
  const FormatList all = allFormats(4);
  const std::vector<std::string> messages = allMessages(characters);
  Series series;
  for (std::size_t n = 0; n < sets && !series.failed(); ++n, ++seed) {
    Random random(seed);
    FormatList formats(random.between(2, random.chance(20) ? 300 : 12));
    for (Tokens& tokens : formats) tokens = random.pick(all);
    Comparison comparison(formats);
    for (const std::string& message : messages) series.compareBoth(comparison, formats, message, seed);
  }
  return series.finding();
}

Finding tryRandomSets(std::uint64_t seed, std::uint64_t pairs) {
  constexpr int kMessages = 150;
  Series series;
  for (; series.finding().pairs < pairs && !series.failed(); ++seed) {
    SetGenerator generator(seed);
    Random random(~seed);
    const FormatList formats = generator.formats();
    const FormatList backwards = reversed(formats);
    Comparison comparison(formats);
    Comparison other(backwards);
    for (int n = 0; n < kMessages; ++n) {
      const std::string message = generator.message();
      const bool eventLog = random.chance(25);
      series.compare(comparison, formats, message, eventLog, seed);
      series.compare(other, backwards, message, eventLog, seed);
    }
  }
  return series.finding();
}

Finding tryDamagedLines(const System& system, std::uint64_t seed, std::uint64_t pairs) {
  const LogDriver driver(system.formats.c_str(), nullptr, 1);
  const FormatList formats = formatsOf(driver);
  const FormatList backwards = reversed(formats);
  Comparison comparison(formats);
  Comparison other(backwards);
  Random random(seed);
  Series series;
  for (std::size_t n = 0; series.finding().pairs < pairs && !series.failed(); ++n) {
    const std::string& line = system.lines[n % system.lines.size()];
    const std::string renewed = withOtherNumbers(line, random);
    for (const std::string& message : {line, renewed, damaged(renewed, random.pick(system.lines), random)}) {
      const bool eventLog = random.chance(20);
      series.compare(comparison, formats, message, eventLog, seed);
      series.compare(other, backwards, message, eventLog, seed);
    }
  }
  return series.finding();
}

Finding tryScaledSet(std::size_t formats, std::size_t headers, std::uint64_t seed, std::uint64_t pairs) {
  const ScaledSet set(formats, headers);
  const FormatList backwards = reversed(set.formats());
  Comparison comparison(set.formats());
  Comparison other(backwards);
  Random random(seed);
  Series series;
  while (series.finding().pairs < pairs && !series.failed()) {
    const std::string line = set.line(random);
    for (const std::string& message : {line, damaged(line, line, random), set.unknownLine(random)}) {
      series.compare(comparison, set.formats(), message, false, seed);
      series.compare(other, backwards, message, false, seed);
    }
  }
  return series.finding();
}

}  // namespace quillon
