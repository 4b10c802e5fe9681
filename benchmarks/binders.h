#ifndef QUILLON_BENCHMARKS_BINDERS_H_
#define QUILLON_BENCHMARKS_BINDERS_H_

#include <cstddef>
#include <memory>
#include <string_view>

#include "tests/match/support/format_list.h"

class LogDriver;

namespace quillon {

/// One way to get the fields out of the lines of a log.
class Binder {
 public:
  virtual ~Binder() = default;

  /// Finds the lines of `text`, each of which ends with a newline, and binds them all. Returns how many were bound.
  virtual std::size_t bindAll(std::string_view text) = 0;
};

/// Calls `each` with the lines of `text`, without their newlines, and returns for how many it was true.
template <class Each>
std::size_t countLines(std::string_view text, Each each) {
  std::size_t count = 0;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    count += each(line) ? 1 : 0;
    text.remove_prefix(line.size() + 1);
  }
  return count;
}

/// Binds nothing: it finds the lines and the beginnings and ends of their words, which nobody can do without.
std::unique_ptr<Binder> makeFloor();

/// The engine, on one thread.
std::unique_ptr<Binder> makeEngine(const LogDriver& driver);

/// What LogDriver::bind() does: each format in turn.
std::unique_ptr<Binder> makePlain(const LogDriver& driver);

/// A set of regular expressions to find the format (RE2::Set), and one regular expression with just-in-time compiled
/// code to find the fields (PCRE2). Null when they cannot be had here or cannot hold so many formats.
std::unique_ptr<Binder> makeRegularExpressions(const FormatList& formats);

/// liblognorm with one rule for each format. Null when it cannot be had here.
std::unique_ptr<Binder> makeLognorm(const FormatList& formats);

}  // namespace quillon

#endif  // QUILLON_BENCHMARKS_BINDERS_H_
