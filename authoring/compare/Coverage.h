#ifndef QUILLON_AUTHORING_COMPARE_COVERAGE_H_
#define QUILLON_AUTHORING_COMPARE_COVERAGE_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "authoring/compare/MessageShapes.h"
#include "src/adapters/logfile/match/Matcher.h"

class LogDriver;

namespace quillon {

/// What a log has made of each block of a format file, and which messages none has bound. One thread at a time.
class Coverage {
 public:
  /// The formats of `driver` in the order of its list, in which they are tried.
  explicit Coverage(const LogDriver& driver);

  /// Adds what `matcher`, which is of these formats, has counted.
  void add(const Matcher& matcher);
  /// Adds unmatched messages that come behind those added before.
  void add(MessageShapes&& unmatched) { unmatched_.add(std::move(unmatched)); }

  /// Whole lines: a table of the blocks in the order of the file, those that bound nothing, and the shapes of unmatched
  /// messages, the most frequent first, up to `mostShapes` of them.
  std::string text(std::size_t mostShapes) const;

 private:
  struct Block {
    std::string name;
    FormatCounts counts;
    std::chrono::nanoseconds time{};
  };

  std::string shapesText(std::size_t most) const;

  std::vector<Block> blocks_;  ///< In the order of trying.
  bool isInFileOrder_;
  MessageShapes unmatched_;
};

}  // namespace quillon

#endif  // QUILLON_AUTHORING_COMPARE_COVERAGE_H_
