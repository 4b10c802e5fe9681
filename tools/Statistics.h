#ifndef QUILLON_TOOLS_STATISTICS_H_
#define QUILLON_TOOLS_STATISTICS_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace quillon {

/// What became of the messages of one run, and how fast. Time counts from when this object is made.
class Statistics {
 public:
  /// The classes in the order in which they are to be told.
  explicit Statistics(std::vector<std::string> classes);

  void countBound(std::size_t place) { ++bound_[place]; }
  void countUnmatched() { ++unmatched_; }
  void addBytes(std::uint64_t bytes) { bytes_ += bytes; }

  /// Messages, bound ones, those of each class that has any, unmatched ones, bytes, and millions of bytes a second.
  void write(std::FILE* stream) const;

 private:
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  const std::vector<std::string> classes_;
  std::vector<std::uint64_t> bound_;  ///< For each of `classes_`.
  std::uint64_t unmatched_ = 0;
  std::uint64_t bytes_ = 0;
};

}  // namespace quillon

#endif  // QUILLON_TOOLS_STATISTICS_H_
