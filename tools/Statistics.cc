#include "tools/Statistics.h"

#include <cinttypes>
#include <numeric>
#include <utility>

namespace quillon {

Statistics::Statistics(std::vector<std::string> classes) : classes_(std::move(classes)), bound_(classes_.size()) {}

void Statistics::write(std::FILE* stream) const {
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start_;
  const std::uint64_t bound = std::accumulate(bound_.begin(), bound_.end(), std::uint64_t{0});
  std::fprintf(stream, "messages %" PRIu64 "\nbound %" PRIu64 "\n", bound + unmatched_, bound);
  for (std::size_t i = 0; i < classes_.size(); ++i) {
    if (bound_[i] > 0) std::fprintf(stream, "  %s %" PRIu64 "\n", classes_[i].c_str(), bound_[i]);
  }
  std::fprintf(stream, "unmatched %" PRIu64 "\nbytes %" PRIu64 "\nMB/s %.1f\n", unmatched_, bytes_,
               static_cast<double>(bytes_) / seconds.count() / 1e6);
}

}  // namespace quillon
