#ifndef QUILLON_TOOLS_STATISTICS_H_
#define QUILLON_TOOLS_STATISTICS_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

namespace quillon {

/// How often each class, and none, has bound a message. One for each thread.
struct MatchCounts {
  explicit MatchCounts(std::size_t classes) : bound(classes) {}

  std::vector<std::uint64_t> bound;  ///< For each class, in the order of the file.
  std::uint64_t unmatched = 0;
};

/// What became of the messages of one run, and how fast. Time counts from when this object is made.
class Statistics {
 public:
  /// The classes in the order in which they are to be told.
  explicit Statistics(std::vector<std::string> classes);

  /// For any thread; all else is for one that is alone.
  void add(const MatchCounts& counts);
  void addBytes(std::uint64_t bytes) { bytes_ += bytes; }

  /// Messages, bound ones, those of each class that has any, unmatched ones, bytes, and millions of bytes a second.
  void write(std::FILE* stream) const;

 private:
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  const std::vector<std::string> classes_;
  std::mutex adding_;
  MatchCounts counts_;
  std::uint64_t bytes_ = 0;
};

}  // namespace quillon

#endif  // QUILLON_TOOLS_STATISTICS_H_
