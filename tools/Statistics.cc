#include "tools/Statistics.h"

#include <cinttypes>
#include <numeric>
#include <utility>

#include "foundation/visible.h"

namespace quillon {

Statistics::Statistics(std::vector<std::string> classes) : classes_(std::move(classes)), counts_(classes_.size()) {}

void Statistics::add(const MatchCounts& counts) {
  const std::lock_guard lock(adding_);
  for (std::size_t i = 0; i < classes_.size(); ++i) counts_.bound[i] += counts.bound[i];
  counts_.unmatched += counts.unmatched;
}

void Statistics::write(std::FILE* stream) const {
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start_;
  const std::uint64_t bound = std::accumulate(counts_.bound.begin(), counts_.bound.end(), std::uint64_t{0});
  std::fprintf(stream, "messages %" PRIu64 "\nbound %" PRIu64 "\n", bound + counts_.unmatched, bound);
  for (std::size_t i = 0; i < classes_.size(); ++i) {
    if (counts_.bound[i] == 0) continue;
    std::fprintf(stream, "  %s %" PRIu64 "\n", visible(classes_[i]).c_str(), counts_.bound[i]);
  }
  std::fprintf(stream, "unmatched %" PRIu64 "\nbytes %" PRIu64 "\nMB/s %.1f\n", counts_.unmatched, bytes_,
               static_cast<double>(bytes_) / seconds.count() / 1e6);
}

}  // namespace quillon
